// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/ntfs_image.h"

#include <unistd.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <utility>

#include "check/ntfs_check.h"
#include "host/image/image_file.h"
#include "host/image/ntfs/ntfs_mount.h"
#include "mkvolume/maker.h"

extern "C" {
#include <ntfs-3g/lcnalloc.h>
}
#undef min
#undef max

namespace vornalux::test {
namespace {

using Inode = std::unique_ptr<ntfs_inode, int (*)(ntfs_inode*)>;
using Attribute = std::unique_ptr<ntfs_attr, void (*)(ntfs_attr*)>;

template <typename Value>
Value Must(Value value, bool good, const std::string& what) {
  if (!good) throw std::runtime_error(what + " failed: " + TakeLibraryMessages());
  return value;
}

Inode OpenInode(ntfs_volume* volume, std::uint64_t item) {
  ntfs_inode* inode = ntfs_inode_open(volume, item);
  return {Must(inode, inode != nullptr, "opening an inode"), ntfs_inode_close};
}

Attribute OpenStream(ntfs_inode* inode, std::u16string_view name) {
  std::u16string units(name);
  auto* text = reinterpret_cast<ntfschar*>(units.data());
  const auto length = static_cast<u8>(units.size());
  if (!ntfs_attr_exist(inode, AT_DATA, units.empty() ? AT_UNNAMED : text, length)) {
    Must(0, ntfs_attr_add(inode, AT_DATA, text, length, nullptr, 0) == 0, "adding a stream");
  }
  ntfs_attr* attribute = ntfs_attr_open(inode, AT_DATA, units.empty() ? AT_UNNAMED : text, length);
  return {Must(attribute, attribute != nullptr, "opening a stream"), ntfs_attr_close};
}

void WriteTo(ntfs_attr* attribute, s64 offset, const Bytes& content) {
  for (std::size_t done = 0; done < content.size();) {
    const s64 piece = ntfs_attr_pwrite(attribute, offset + static_cast<s64>(done),
                                       static_cast<s64>(content.size() - done), &content[done]);
    done += static_cast<std::size_t>(Must(piece, piece > 0, "writing"));
  }
  Must(0, ntfs_attr_pclose(attribute) == 0, "compressing");
}

std::uint64_t Create(ntfs_volume* volume, std::uint64_t parent, std::u16string_view name,
                     mode_t type) {
  const Inode folder = OpenInode(volume, parent);
  std::u16string units(name);
  ntfs_inode* inode =
      ntfs_create(folder.get(), cpu_to_le32(0), reinterpret_cast<ntfschar*>(units.data()),
                  static_cast<u8>(units.size()), type);
  Must(0, inode != nullptr, "creating a file");
  const std::uint64_t item = MK_MREF(inode->mft_no, le16_to_cpu(inode->mrec->sequence_number));
  Must(0, ntfs_inode_close(inode) == 0, "closing a file");
  return item;
}

std::string Digest(ntfs_inode* inode, const AttributeName& name) {
  std::vector<ntfschar> units = name.name;
  const Attribute stream(ntfs_attr_open(inode, AT_DATA, units.empty() ? AT_UNNAMED : units.data(),
                                        static_cast<u32>(units.size())),
                         ntfs_attr_close);
  if (!stream) return "cannot be opened";
  std::string all;
  Bytes buffer(1U << 20);
  s64 done = 0;
  while (done < stream->data_size) {
    const s64 piece =
        ntfs_attr_pread(stream.get(), done, static_cast<s64>(buffer.size()), buffer.data());
    if (piece <= 0) return "cannot be read";
    all.append(buffer.begin(), buffer.begin() + piece);
    all = std::to_string(std::hash<std::string>()(all));
    done += piece;
  }
  return std::to_string(done) + " bytes, hash " + all;
}

void SnapshotRecord(ntfs_inode* inode, const std::string& key,
                    std::map<std::string, std::string>& out) {
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  while (ntfs_attrs_walk(context.get()) == 0) {
    const ATTR_RECORD* record = context->attr;
    if (record->non_resident && record->lowest_vcn != 0) continue;
    if (record->type == AT_ATTRIBUTE_LIST) continue;
    const auto* bytes = reinterpret_cast<const char*>(record);
    const auto* name = reinterpret_cast<const ntfschar*>(bytes + le16_to_cpu(record->name_offset));
    std::string& entry = out[key + " type " + std::to_string(le32_to_cpu(record->type)) + " " +
                             ToWtf8(FromUnits(name, record->name_length))];
    entry += "flags " + std::to_string(le16_to_cpu(record->flags)) + " ";
    if (record->type == AT_DATA) {
      if (record->non_resident) {
        entry += std::to_string(sle64_to_cpu(record->initialized_size)) + " initialized ";
      }
      entry += Digest(inode, {AT_DATA, {name, name + record->name_length}});
    } else if (!record->non_resident) {
      entry.append(bytes + le16_to_cpu(record->value_offset), le32_to_cpu(record->value_length));
    }
  }
}

}  // namespace

ImageFile::ImageFile(const std::string& name)
    : path_(std::filesystem::temp_directory_path() /
            ("vornalux-" + std::to_string(getpid()) + "-" + name)) {}

ImageFile::~ImageFile() { std::filesystem::remove(path_); }

Bytes ImageFile::Content() const { return Peek(0, std::filesystem::file_size(path_)); }

void ImageFile::SetContent(const Bytes& content) const {
  std::filesystem::remove(path_);
  std::ofstream(path_, std::ios::binary)
      .write(reinterpret_cast<const char*>(content.data()), std::ssize(content));
}

void ImageFile::Poke(std::uint64_t offset, const Bytes& bytes) const {
  std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
}

Bytes ImageFile::Peek(std::uint64_t offset, std::size_t length) const {
  Bytes bytes(length);
  std::ifstream file(path_, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char*>(bytes.data()), std::ssize(bytes));
  return bytes;
}

void MakeNtfs(const ImageFile& image, std::uint64_t size, int cluster_size) {
  std::ofstream(image.Path()).close();
  std::filesystem::resize_file(image.Path(), size);
  const std::string command = "mkntfs -F -q -f -s 512 -p 0 -H 255 -S 63 -L 'T\u00e9st' -c " +
                              std::to_string(cluster_size) + " " + image.Path() +
                              " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

void MakeFilled(const ImageFile& image, std::uint64_t size, int cluster_size, int files,
                std::uint64_t seed) {
  const std::string compressed = cluster_size <= 4096 ? " compressed=15%" : "";
  MakeVolume("ntfs size=" + std::to_string(size) + " cluster=" + std::to_string(cluster_size) +
                 " files=" + std::to_string(files) + " folders=" + std::to_string(files / 15) +
                 " seed=" + std::to_string(seed) + compressed +
                 " fill=50% fragmented=50% fragmented-folders=50% pieces=8 mft-pieces=2 streams=20%"
                 " sparse=10% links=10% dos-names=20% odd-names=20%",
             image.Path());
  LibraryVolume volume(image, LibraryVolume::Mode::ReadWrite);
  const auto cluster = static_cast<std::size_t>(cluster_size);
  volume.MarkSparse(volume.AddFile(FILE_root, u"marked sparse", Content(cluster * 9, seed)));
  const std::uint64_t preallocated = volume.AddFile(FILE_root, u"preallocated");
  volume.Preallocate(preallocated, u"later", static_cast<s64>(cluster * 20));
  volume.SetAttributes(preallocated, attribute::kCompressed);
  for (int i = 0; i < 60; ++i) {
    volume.Write(preallocated, u"many" + std::u16string(static_cast<std::size_t>(i), u'y'), 0,
                 Content(cluster + 1, seed));
  }
}

LibraryVolume::LibraryVolume(const ImageFile& image, Mode mode) {
  CollectLibraryMessages();
  volume_ = ntfs_mount(image.Path().c_str(), mode == Mode::ReadOnly ? NTFS_MNT_RDONLY : 0);
  Must(0, volume_ != nullptr, "mounting " + image.Path());
}

LibraryVolume::~LibraryVolume() { ntfs_umount(volume_, FALSE); }

std::uint64_t LibraryVolume::AddFolder(std::uint64_t parent, std::u16string_view name) {
  return Create(volume_, parent, name, S_IFDIR);
}

std::uint64_t LibraryVolume::AddFile(std::uint64_t parent, std::u16string_view name,
                                     const Bytes& content) {
  const std::uint64_t item = Create(volume_, parent, name, S_IFREG);
  Write(item, u"", 0, content);
  return item;
}

std::uint64_t LibraryVolume::AddShattered(std::uint64_t parent, std::u16string_view name,
                                          const Bytes& content, s64 lcn) {
  const std::uint64_t item = Create(volume_, parent, name, S_IFREG);
  const Inode inode = OpenInode(volume_, item);
  const Attribute stream = OpenStream(inode.get(), u"");
  const auto size = static_cast<s64>(content.size());
  Must(0, ntfs_attr_truncate_solid(stream.get(), size) == 0, "allocating");
  Must(0, ntfs_attr_map_whole_runlist(stream.get()) == 0, "mapping");
  Must(0, ntfs_cluster_free_from_rl(volume_, stream->rl) == 0, "freeing");
  std::vector<ClusterRun> runs;
  for (s64 vcn = 0; vcn * volume_->cluster_size < size; lcn += 2) {
    std::uint8_t byte = 0;
    Must(0, ntfs_attr_pread(volume_->lcnbmp_na, lcn / 8, 1, &byte) == 1, "looking for room");
    if (byte >> lcn % 8 & 1) continue;
    runs.push_back({vcn++, lcn, 1});
    Must(0, ntfs_bitmap_set_run(volume_->lcnbmp_na, lcn, 1) == 0, "taking a cluster");
  }
  std::free(std::exchange(stream->rl, MakeRunlist(runs).release()));
  Must(0, ntfs_attr_update_mapping_pairs(stream.get(), 0) == 0, "writing runs");
  WriteTo(stream.get(), 0, content);
  return item;
}

void LibraryVolume::Write(std::uint64_t item, std::u16string_view stream, s64 offset,
                          const Bytes& content) {
  const Inode inode = OpenInode(volume_, item);
  const Attribute attribute = OpenStream(inode.get(), stream);
  if (offset > attribute->data_size) {
    Must(0, ntfs_attr_truncate(attribute.get(), offset) == 0, "making a hole");
  }
  WriteTo(attribute.get(), offset, content);
}

void LibraryVolume::Preallocate(std::uint64_t item, std::u16string_view stream, s64 size) {
  const Inode inode = OpenInode(volume_, item);
  const Attribute attribute = OpenStream(inode.get(), stream);
  Must(0, ntfs_attr_truncate_solid(attribute.get(), size) == 0, "allocating");
}

void LibraryVolume::Fill(s64 left) {
  constexpr s64 kLeast = 4;  // fewer could fit into a file's record
  Must(0, ntfs_volume_get_free_space(volume_) == 0, "counting free clusters");
  const auto take = [this](s64 clusters) {
    const std::string number = std::to_string(volume_->free_clusters);
    const std::u16string name = u"filler" + std::u16string(number.begin(), number.end());
    Preallocate(AddFile(FILE_root, name), u"", clusters * volume_->cluster_size);
  };
  for (s64 piece = 4096; piece >= kLeast; piece /= 2) {
    while (volume_->free_clusters >= piece + left + 2 * kLeast) take(piece);
  }
  take(volume_->free_clusters - left);
}

void LibraryVolume::SetAttributes(std::uint64_t item, std::uint32_t attributes) {
  const Inode inode = OpenInode(volume_, item);
  const std::uint32_t all = le32_to_cpu(static_cast<std::uint32_t>(inode->flags)) | attributes;
  inode->flags = static_cast<FILE_ATTR_FLAGS>(cpu_to_le32(all));
  ntfs_inode_mark_dirty(inode.get());
}

void LibraryVolume::MarkSparse(std::uint64_t item) {
  // A hole makes the library write the mark; then the hole gets a cluster behind its back.
  const Inode inode = OpenInode(volume_, item);
  const Attribute attribute = OpenStream(inode.get(), u"");
  const s64 size = attribute->data_size;
  Must(0, ntfs_attr_truncate(attribute.get(), size + 16 * volume_->cluster_size) == 0, "a hole");
  ntfs_attr_map_whole_runlist(attribute.get());
  runlist_element* last = attribute->rl;
  while (last[1].length != 0) ++last;
  const std::unique_ptr<runlist_element, FreeMemory> clusters(
      ntfs_cluster_alloc(volume_, last->vcn, last->length, -1, DATA_ZONE));
  Must(0, last->lcn == LCN_HOLE && clusters && clusters->length == last->length, "filling a hole");
  last->lcn = clusters->lcn;
  const SearchContext context(ntfs_attr_get_search_ctx(inode.get(), nullptr));
  Must(0, FindAttribute({}, 0, context.get()) == 0, "finding data");
  context->attr->flags = static_cast<ATTR_FLAGS>(ATTR_IS_SPARSE | ATTR_IS_COMPRESSED);
  Must(0, ntfs_attr_update_mapping_pairs(attribute.get(), 0) == 0, "writing runs");
  context->attr->flags = ATTR_IS_SPARSE;
  attribute->compressed_size = attribute->allocated_size;
  context->attr->compressed_size = static_cast<sle64>(cpu_to_sle64(attribute->allocated_size));
  inode->allocated_size = attribute->allocated_size;
  ntfs_inode_mark_dirty(inode.get());
}

std::map<std::string, std::string> LibraryVolume::Snapshot() const {
  std::map<std::string, std::string> all;
  const s64 records = volume_->mft_na->initialized_size >> volume_->mft_record_size_bits;
  for (s64 record = FILE_root; record < records; ++record) {
    if (record > FILE_root && record < 24) continue;
    ntfs_inode* inode = ntfs_inode_open(volume_, static_cast<MFT_REF>(record));
    if (inode == nullptr) continue;  // free, or part of another file's record
    SnapshotRecord(inode, "record " + std::to_string(record), all);
    ntfs_inode_close(inode);
  }
  return all;
}

Bytes Content(std::size_t size, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(size);
  for (std::size_t at = 0; at < size;) {
    const std::size_t stretch = std::min<std::size_t>(size - at, 500 + random() % 30000);
    const bool dense = random() % 2 == 0;
    const auto filler = static_cast<std::uint8_t>(random());
    for (std::size_t end = at + stretch; at < end; ++at) {
      bytes[at] = dense ? static_cast<std::uint8_t>(random()) : filler;
    }
  }
  return bytes;
}

std::vector<NamedStream> AllStreams(MountedVolume& volume) {
  std::vector<NamedStream> found = {{"/", {volume.Root(), ""}}};
  std::vector<std::pair<std::string, ItemId>> folders = {{"", volume.Root()}};
  if (const auto mft = volume.HiddenItem(volume.Root(), "$mft")) {
    found.push_back({"/$MFT", {mft->id, ""}});
    found.push_back({"/$MFT::$BITMAP", {mft->id, "::$BITMAP"}});
  }
  while (!folders.empty()) {
    const auto [path, folder] = folders.back();
    folders.pop_back();
    std::vector<FolderItem> items;
    if (volume.ListFolder(folder, items) != error::kSuccess) continue;
    for (const FolderItem& item : items) {
      const std::string own = path + "/" + item.name;
      std::vector<std::string> streams;
      volume.StreamNames(item.id, streams);
      for (const std::string& stream : streams) found.push_back({own + stream, {item.id, stream}});
      if (!(item.attributes & attribute::kDirectory)) continue;
      found.push_back({own, {item.id, ""}});
      folders.emplace_back(own, item.id);
    }
  }
  return found;
}

#ifdef __SANITIZE_ADDRESS__
MayLeak::MayLeak() { __lsan_disable(); }
MayLeak::~MayLeak() { __lsan_enable(); }
#else
MayLeak::MayLeak() = default;
MayLeak::~MayLeak() = default;
#endif

std::int64_t FreeRun(const MountedVolume& volume, std::int64_t lcn, std::int64_t count) {
  std::int64_t run = 0;
  for (; lcn < volume.Facts().total_clusters; ++lcn) {
    std::uint8_t byte = 0;
    volume.CopyBitmap(lcn / 8 * 8, {&byte, 1});
    run = byte >> lcn % 8 & 1 ? 0 : run + 1;
    if (run == count) return lcn - count + 1;
  }
  return -1;
}

std::unique_ptr<MountedVolume> OpenFile(const ImageFile& image, bool writable, bool allow_dirty) {
  const MayLeak may_leak;
  OpenReport report;
  OpenOptions options;
  options.writable = writable;
  options.allow_dirty = allow_dirty;
  return OpenImage(image.Path(), options, report);
}

MemoryVolume::MemoryVolume(Bytes content)
    : device_(std::move(content)), failing_(device_, FailingDevice::kReads) {
  VolumeStore store;
  store.device = std::make_unique<BorrowedDevice>(failing_);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal_);
  const MayLeak may_leak;
  volume_ = OpenNtfsVolume(std::move(store));
}

ErrorCode MemoryVolume::Finish(const ImageFile& image) {
  const ErrorCode code = volume_->Close();
  volume_.reset();
  image.SetContent(device_.Content());
  return code;
}

std::string Complaint(const ImageFile& image, const std::map<std::string, std::string>& expected) {
  std::string text = CheckNtfs(image.Path()).ProblemText();
  const auto found = LibraryVolume(image, LibraryVolume::Mode::ReadOnly).Snapshot();
  for (const auto& [key, value] : expected) {
    const auto same = found.find(key);
    if (same == found.end()) text += key + " is gone\n";
    if (same != found.end() && same->second != value) {
      text += key + " was " + value + " and is " + same->second + "\n";
    }
  }
  if (found.size() > expected.size()) text += "there is more than before\n";
  return text;
}

}  // namespace vornalux::test
