// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/ntfs/snapshot_image.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

#include "check/volume_check.h"
#include "mkvolume/ntfs_library.h"

namespace vornalux::test {
namespace {

using namespace making;

constexpr std::uint32_t kSecurityId = 0x100;
constexpr std::array<std::uint8_t, 16> kIdentifier = {
    0x6B, 0x87, 0x08, 0x38, 0x76, 0xC1, 0x48, 0x4E, 0xB7, 0xAE, 0x04, 0x04, 0x6E, 0x6C, 0xC7, 0x52};
const std::u16string kMark = u"{3808876b-c176-4e48-b7ae-04046e6cc752}";

void PutHead(ByteSpan record, std::uint32_t type) {
  std::ranges::copy(kIdentifier, record.begin());
  Put(record, 16, 4, 1);
  Put(record, 20, 4, type);
}

NtfsInode Create(const NtfsInode& folder, std::u16string name, mode_t type) {
  std::vector<ntfschar> units(name.begin(), name.end());
  NtfsInode made(ntfs_create(folder.get(), cpu_to_le32(kSecurityId), units.data(),
                             static_cast<u8>(units.size()), type));
  if (made.get() == nullptr) NtfsFailed("cannot create a snapshot's file");
  return made;
}

// The cluster behind the file's last one, for as long as nobody has it.
std::int64_t Append(const NtfsInode& file, std::size_t bytes, std::uint8_t value) {
  const auto data = OpenAttribute(file.get(), AT_DATA, u"");
  const std::vector<std::uint8_t> content(bytes, value);
  const auto size = static_cast<s64>(bytes);
  if (!data || ntfs_attr_pwrite(data.get(), data->data_size, size, content.data()) != size) {
    NtfsFailed("cannot write a snapshot's file");
  }
  const PlacedRun last = RunsOf(data.get()).back();
  return last.lcn + last.count;
}

// In turns and with the cluster behind each piece taken meanwhile, so that none is in one piece.
void CreateFiles(const std::string& path, std::uint8_t stores) {
  Image image = Image::Open(path);
  MountedNtfs volume(image);
  NtfsInode root = NtfsInode::Open(volume.get(), FILE_root);
  NtfsInode folder = Create(root, u"System Volume Information", S_IFDIR);
  std::vector<NtfsInode> files;
  files.push_back(Create(folder, kMark, S_IFREG));
  for (std::uint8_t i = 0; i < stores; ++i) {
    files.push_back(Create(
        folder, u"{0000000" + std::u16string(1, static_cast<char16_t>(u'1' + i)) + u"}" + kMark,
        S_IFREG));
  }
  std::vector<std::int64_t> taken;
  const auto set = [&](std::int64_t lcn, bool used) {
    ClusterSet clusters = volume.ReadBitmap();
    clusters.Set(lcn, 1, used);
    volume.WriteBitmap(clusters);
  };
  for (int turn = 0; turn < 3; ++turn) {
    for (std::size_t i = 0; i < files.size(); ++i) {
      const std::int64_t behind =
          Append(files[i], 5 * kCatalogBlock, static_cast<std::uint8_t>(0xA0 + i));
      if (behind >= volume->nr_clusters || volume.ReadBitmap().Taken(behind)) continue;
      set(behind, true);
      taken.push_back(behind);
    }
  }
  for (const std::int64_t lcn : taken) set(lcn, false);
  for (NtfsInode& file : files) file.CloseIn(folder);
  folder.CloseIn(root);
  root.Close();
  volume.Unmount();
}

bool IsSnapshotFile(const CheckedItem& item) {
  return item.path.find("{3808876b-") != std::string::npos;
}

}  // namespace

void PutSnapshotHeader(ByteSpan volume, std::uint64_t catalog) {
  const ByteSpan header = volume.subspan(kSnapshotHeader, 512);
  PutHead(header, 1);
  Put(header, 24, 8, kSnapshotHeader);
  Put(header, 48, 8, catalog);
}

void PutCatalogBlock(ByteSpan volume, std::uint64_t at, std::uint64_t next,
                     const std::vector<CatalogEntry>& entries) {
  const ByteSpan block = volume.subspan(at, kCatalogBlock);
  std::ranges::fill(block, std::uint8_t{0});
  PutHead(block, 2);
  Put(block, 32, 8, at);
  Put(block, 40, 8, next);
  std::size_t entry = 128;
  for (const CatalogEntry& each : entries) {
    Put(block, entry, 8, each.type);
    std::fill_n(&block[entry + 16], 16, each.store);
    if (each.type == 2) Put(block, entry + 48, 8, each.time);
    entry += 128;
  }
}

Manifest AddSnapshots(const std::string& image, std::uint8_t stores, bool header) {
  CreateFiles(image, stores);
  const CheckReport report = CheckVolume(image);
  const CheckedItem* const catalog =
      report.Find("/System Volume Information/{3808876b-c176-4e48-b7ae-04046e6cc752}");
  if (catalog == nullptr || catalog->extents.size() < 2) {
    throw std::runtime_error("the catalog is in one piece");
  }
  std::vector<CatalogEntry> first, second;
  for (std::uint8_t i = 0; i < stores; ++i) {
    (i % 2 == 0 ? first : second).push_back({2, i, SnapshotTime(i)});
    (i % 2 == 0 ? second : first).push_back({3, i, 0});
  }
  std::fstream file(image, std::ios::binary | std::ios::in | std::ios::out);
  const auto place = [&](std::size_t extent) {
    return static_cast<std::uint64_t>(catalog->extents[extent].lcn) * report.cluster_size;
  };
  const auto write = [&](std::uint64_t at, const std::vector<CatalogEntry>& entries,
                         std::uint64_t next) {
    std::vector<std::uint8_t> volume(at + kCatalogBlock);
    PutCatalogBlock(volume, at, next, entries);
    file.seekp(static_cast<std::streamoff>(at));
    file.write(reinterpret_cast<const char*>(&volume[at]), kCatalogBlock);
  };
  write(place(0), first, place(1));
  write(place(1), second, 0);
  if (header) {
    std::vector<std::uint8_t> front(kSnapshotHeader + 512);
    PutSnapshotHeader(front, place(0));
    file.seekp(kSnapshotHeader);
    file.write(reinterpret_cast<const char*>(&front[kSnapshotHeader]), 512);
  }
  file.close();
  return ManifestOf(CheckVolume(image, {.hash = true}).items);
}

bool HasSnapshotHeader(const std::string& image) {
  std::vector<char> header(512);
  std::ifstream file(image, std::ios::binary);
  file.seekg(kSnapshotHeader).read(header.data(), 512);
  return file.good() && std::ranges::any_of(header, [](char byte) { return byte != 0; });
}

std::string SnapshotExtents(const std::string& image) {
  std::string text;
  for (const CheckedItem& item : CheckVolume(image).items) {
    if (!IsSnapshotFile(item)) continue;
    text += item.path;
    for (const CheckedExtent& extent : item.extents) {
      text += " " + std::to_string(extent.lcn) + "+" + std::to_string(extent.count);
    }
    text += "\n";
  }
  return text;
}

}  // namespace vornalux::test
