// SPDX-License-Identifier: GPL-2.0-or-later
#include "maker_editor.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace vornalux::test {
namespace {

constexpr std::size_t kRecord = 1024;
constexpr std::size_t kSector = 512;

// The n-th item that fits.
template <typename Fits>
const CheckedItem& Nth(const CheckReport& report, std::size_t n, Fits fits) {
  for (const CheckedItem& item : report.items) {
    if (fits(item) && n-- == 0) return item;
  }
  throw std::logic_error("the volume has too few such items");
}

}  // namespace

std::uint64_t Get(ByteSpan bytes, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[at + i];
  return value;
}

void Put(ByteSpan bytes, std::size_t at, std::size_t width, std::uint64_t value) {
  for (std::size_t i = 0; i < width; ++i, value >>= 8) {
    bytes[at + i] = static_cast<std::uint8_t>(value);
  }
}

std::vector<std::uint8_t> LoadFile(const std::string& path) {
  std::vector<std::uint8_t> bytes(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

const CheckedItem& NtfsEditor::Whole(std::size_t n) const {
  return Nth(report, n, [](const CheckedItem& item) {
    return !item.is_folder && !item.compressed && !item.sparse && item.stream.empty() &&
           item.extents.size() == 1 && item.extents[0].count > 1;
  });
}

const CheckedItem& NtfsEditor::Meta(const std::string& path, const std::string& stream) const {
  for (const CheckedItem& item : report.metafiles) {
    if (item.path == path && item.stream == stream) return item;
  }
  throw std::logic_error("no metafile " + path);
}

ByteSpan NtfsEditor::RawRecord(std::uint64_t number) {
  const auto at = static_cast<std::int64_t>(number * kRecord);
  const auto cluster = static_cast<std::int64_t>(Cluster());
  for (const CheckedExtent& extent : Meta("/$MFT").extents) {
    const std::int64_t start = extent.vcn * cluster;
    if (at >= start && at < start + extent.count * cluster) {
      return At(extent.lcn).subspan(static_cast<std::size_t>(at - start), kRecord);
    }
  }
  throw std::logic_error("no record " + std::to_string(number));
}

void NtfsEditor::Protected(ByteSpan record, const std::function<void(ByteSpan)>& edit) {
  const std::size_t array = Get(record, 4, 2);
  for (std::size_t i = 1; i <= record.size() / kSector; ++i) {
    Put(record, i * kSector - 2, 2, Get(record, array + 2 * i, 2));
  }
  edit(record);
  for (std::size_t i = 1; i <= record.size() / kSector; ++i) {
    Put(record, array + 2 * i, 2, Get(record, i * kSector - 2, 2));
    Put(record, i * kSector - 2, 2, Get(record, array, 2));
  }
}

void NtfsEditor::Record(std::uint64_t number, const std::function<void(ByteSpan)>& edit) {
  const ByteSpan record = RawRecord(number);
  Protected(record, edit);
  if (number < 4) {
    std::copy(record.begin(), record.end(),
              At(Meta("/$MFTMirr").extents[0].lcn).subspan(number * kRecord).begin());
  }
}

void NtfsEditor::Block(std::int64_t lcn, const std::function<void(ByteSpan)>& edit) {
  Protected(At(lcn).first(4096), edit);
}

void NtfsEditor::Attribute(std::uint64_t number, std::uint32_t type,
                           const std::function<void(ByteSpan)>& edit, std::size_t name_length) {
  Record(number, [&](ByteSpan record) {
    for (std::size_t at = Get(record, 20, 2); Get(record, at, 4) != 0xFFFFFFFF;) {
      const std::size_t length = Get(record, at + 4, 4);
      if (Get(record, at, 4) == type && record[at + 9] == name_length) {
        return edit(record.subspan(at, length));
      }
      at += length;
    }
    throw std::logic_error("no such attribute");
  });
}

FatEditor::FatEditor(std::vector<std::uint8_t> image, const CheckReport& sound)
    : bytes(std::move(image)), report(sound) {
  const ByteSpan boot = Boot();
  const std::size_t sector = Get(boot, 11, 2);
  tables_at_ = sector * Get(boot, 14, 2);
  tables_ = boot[16];
  table_size_ = sector * (Get(boot, 22, 2) != 0 ? Get(boot, 22, 2) : Get(boot, 36, 4));
  data_at_ = tables_at_ + static_cast<std::size_t>(tables_) * table_size_ + 32 * Get(boot, 17, 2);
  bits_ = std::stoi(report.file_system.substr(3));
}

std::uint32_t FatEditor::Next(std::uint32_t cluster) const {
  const ByteSpan table(const_cast<std::uint8_t*>(bytes.data()) + tables_at_, table_size_);
  if (bits_ == 32) return Get(table, std::size_t{4} * cluster, 4) & 0x0FFFFFFF;
  if (bits_ == 16) return static_cast<std::uint32_t>(Get(table, std::size_t{2} * cluster, 2));
  const auto pair = static_cast<std::uint32_t>(Get(table, cluster * 3 / 2, 2));
  return cluster % 2 == 0 ? pair & 0xFFF : pair >> 4;
}

void FatEditor::SetNextInCopy(int copy, std::uint32_t cluster, std::uint32_t next) {
  const ByteSpan table = ByteSpan(bytes).subspan(
      tables_at_ + static_cast<std::size_t>(copy) * table_size_, table_size_);
  if (bits_ == 32) return Put(table, std::size_t{4} * cluster, 4, next);
  if (bits_ == 16) return Put(table, std::size_t{2} * cluster, 2, next);
  const std::uint64_t pair = Get(table, cluster * 3 / 2, 2);
  Put(table, cluster * 3 / 2, 2,
      cluster % 2 == 0 ? (pair & 0xF000) | (next & 0xFFF) : (pair & 0xF) | (next & 0xFFF) << 4);
}

void FatEditor::SetNext(std::uint32_t cluster, std::uint32_t next) {
  for (int copy = 0; copy < tables_; ++copy) SetNextInCopy(copy, cluster, next);
}

std::uint32_t FatEditor::FreeCluster() const {
  std::uint32_t cluster = 2;
  while (Next(cluster) != 0) ++cluster;
  return cluster;
}

const CheckedItem& FatEditor::LongFile(std::size_t n) const {
  return Nth(report, n, [this](const CheckedItem& item) {
    return !item.is_folder && item.size > report.cluster_size;
  });
}

const CheckedItem& FatEditor::InnerFolder(std::size_t n) const {
  return Nth(report, n, [](const CheckedItem& item) {
    return item.is_folder && std::count(item.path.begin(), item.path.end(), '/') > 1;
  });
}

ByteSpan FatEditor::Folder(const CheckedItem& folder) {
  return ByteSpan(bytes).subspan(
      data_at_ + static_cast<std::size_t>(folder.extents.at(0).lcn) * report.cluster_size,
      report.cluster_size);
}

ByteSpan FatEditor::EntryOf(const CheckedItem& item) {
  for (const CheckedItem& folder : report.items) {
    if (!folder.is_folder || !item.path.starts_with(folder.path + "/")) continue;
    for (const CheckedExtent& extent : folder.extents) {
      const std::size_t start =
          data_at_ + static_cast<std::size_t>(extent.lcn) * report.cluster_size;
      const std::size_t size = static_cast<std::size_t>(extent.count) * report.cluster_size;
      for (std::size_t at = start; at < start + size; at += 32) {
        const ByteSpan entry = ByteSpan(bytes).subspan(at, 32);
        const bool used = entry[0] != 0 && entry[0] != 0xE5 && entry[11] != 0x0F && entry[0] != '.';
        if (used && (Get(entry, 26, 2) | Get(entry, 20, 2) << 16) == First(item)) return entry;
      }
    }
  }
  throw std::logic_error("no entry of " + item.path);
}

std::size_t FatEditor::LongNameAt() {
  for (const CheckedItem& folder : report.items) {
    if (!folder.is_folder) continue;
    const ByteSpan entries = Folder(folder);
    for (std::size_t at = 0; at + 64 < entries.size() && entries[at] != 0; at += 32) {
      const bool first_of_long = entries[at + 11] == 0x0F && (entries[at] & 0x40) != 0;
      if (first_of_long && entries[at] != 0xE5 && entries[at] > 0x41) {
        return static_cast<std::size_t>(&entries[at] - bytes.data());
      }
    }
  }
  throw std::logic_error("no long name");
}

}  // namespace vornalux::test
