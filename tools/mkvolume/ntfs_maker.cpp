// SPDX-License-Identifier: GPL-2.0-or-later
// Makes NTFS volumes in two rounds. First all names, resident streams and compressed streams, which
// the library places as it likes; then, knowing what is free, every other stream and all that the
// library has placed is given its clusters by plan.
#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "mkvolume/image.h"
#include "mkvolume/key.h"
#include "mkvolume/names.h"
#include "mkvolume/ntfs_library.h"
#include "mkvolume/space.h"
#include "mkvolume/tree.h"
#include "mkvolume/volume_makers.h"

namespace vornalux::making {
namespace {

constexpr std::uint64_t kResidentLimit = 600;  // bytes; larger ones never fit beside the names
constexpr std::uint32_t kSecurityId = 0x100;   // mkntfs gives every volume this descriptor
constexpr std::int64_t kTableStart = 16;       // clusters of $MFT that stay in place
constexpr std::u16string_view kFolderIndex = u"$I30";

// A stream that gets its clusters in the second round.
struct Deferred {
  std::size_t item = 0;
  std::size_t stream = 0;
  enum class Kind { Table, Folder, New, Compressed } kind = Kind::New;
  std::vector<PlacedRun> old_runs;
  std::vector<std::uint8_t> old_bytes;  // of old_runs, one after the other
};

class NtfsMaker {
 public:
  NtfsMaker(const Recipe& recipe, const std::string& path)
      : recipe_(recipe),
        image_(Format(recipe, path)),
        volume_(image_),
        cluster_(volume_->cluster_size),
        random_(KeyOf(recipe.seed, "ntfs")) {}

  Manifest Make();

 private:
  static Image Format(const Recipe& recipe, const std::string& path);

  void CreateAll();
  void CreateFile(NtfsInode& folder, std::size_t item);
  void AddLinks(std::size_t item);
  void AddDosName(std::size_t item);
  bool WriteResident(NtfsInode& file, std::size_t item, std::size_t stream);
  void WriteCompressed(NtfsInode& file, std::size_t item, std::size_t stream);
  void Defer(std::size_t item, std::size_t stream, Deferred::Kind kind);
  void GrowTable();

  void TakeUp(ClusterSet& clusters);
  void TakeUpRuns(Deferred& deferred, const std::vector<PlacedRun>& runs, ClusterSet& clusters);
  void ScaleFiles(const ClusterSet& clusters);
  SpaceRequest RequestFor(const Deferred& deferred);
  void Place();
  void Apply(const Deferred& deferred, const std::vector<PlacedRun>& runs);
  void ApplyTable(const Deferred& deferred, const std::vector<PlacedRun>& runs);
  void ApplyNew(NtfsInode& file, const Deferred& deferred, const std::vector<PlacedRun>& runs);
  void WriteMoved(const Deferred& deferred, const std::vector<PlacedRun>& runs);

  ClusterPlaces Places() const { return {0, cluster_}; }
  PlannedStream& StreamOf(const Deferred& deferred) {
    return tree_.items[deferred.item].streams[deferred.stream];
  }

  const Recipe& recipe_;
  Image image_;
  MountedNtfs volume_;
  std::uint32_t cluster_;
  SeededRandom random_;
  Tree tree_;
  Manifest manifest_;
  std::vector<std::uint64_t> references_;  // by item
  std::vector<Deferred> deferred_;
};

// mkntfs draws a serial number; one that follows from the seed makes images easier to compare.
void SetSerial(Image& image, const Recipe& recipe) {
  std::array<std::uint8_t, 8> serial{};
  std::uint64_t value = KeyOf(recipe.seed, "serial");
  for (std::uint8_t& byte : serial) {
    byte = static_cast<std::uint8_t>(value);
    value >>= 8;
  }
  const std::uint64_t backup = (recipe.size / recipe.sector - 1) * recipe.sector;
  image.Write(0x48, serial);
  image.Write(backup + 0x48, serial);
}

Image NtfsMaker::Format(const Recipe& recipe, const std::string& path) {
  Image image = Image::Create(path, recipe.size);
  const std::uint32_t cluster = recipe.cluster != 0 ? recipe.cluster : 4096;
  RunTool({"mkntfs", "-F", "-Q", "-q", "-s", std::to_string(recipe.sector), "-c",
           std::to_string(std::max(cluster, recipe.sector)), "-p", "0", "-H", "0", "-S", "0",
           path});
  SetSerial(image, recipe);
  return image;
}

Manifest NtfsMaker::Make() {
  tree_ = PlanTree(recipe_, cluster_);
  CreateAll();
  Place();
  volume_.Unmount();
  return std::move(manifest_);
}

void NtfsMaker::CreateAll() {
  const auto children = tree_.Children();
  references_.resize(tree_.items.size());
  references_[0] = FILE_root;
  for (std::size_t folder = 0; folder < tree_.items.size(); ++folder) {
    if (!tree_.items[folder].is_folder) continue;
    if (folder != 0) manifest_.entries[tree_.PathOf(folder) + "/"] = {"-", 0};
    if (children[folder].empty()) continue;
    NtfsInode inode = NtfsInode::Open(volume_.get(), references_[folder]);
    for (const std::size_t child : children[folder]) {
      CreateFile(inode, child);
    }
    inode.Close();
  }
  for (std::size_t item = 0; item < tree_.items.size(); ++item) {
    AddLinks(item);
    if (tree_.items[item].dos_name) AddDosName(item);
  }
  GrowTable();
}

void NtfsMaker::CreateFile(NtfsInode& folder, std::size_t item) {
  const PlannedItem& planned = tree_.items[item];
  std::vector<ntfschar> name(planned.name.begin(), planned.name.end());
  const mode_t type = planned.is_folder ? S_IFDIR : S_IFREG;
  NtfsInode file(ntfs_create(folder.get(), cpu_to_le32(kSecurityId), name.data(),
                             static_cast<u8>(name.size()), type));
  if (file.get() == nullptr) NtfsFailed("cannot create " + tree_.PathOf(item));
  references_[item] = MK_MREF(file->mft_no, le16_to_cpu(file->mrec->sequence_number));
  for (std::size_t i = 0; i < planned.streams.size(); ++i) {
    if (planned.streams[i].compressed) {
      WriteCompressed(file, item, i);
      Defer(item, i, Deferred::Kind::Compressed);
    } else if (!WriteResident(file, item, i)) {
      Defer(item, i, Deferred::Kind::New);
    }
  }
  if (planned.is_folder) Defer(item, 0, Deferred::Kind::Folder);
  file.CloseIn(folder);
}

void NtfsMaker::AddLinks(std::size_t item) {
  for (const PlannedItem::Link& link : tree_.items[item].links) {
    NtfsInode file = NtfsInode::Open(volume_.get(), references_[item]);
    NtfsInode folder = NtfsInode::Open(volume_.get(), references_[link.parent]);
    std::vector<ntfschar> name(link.name.begin(), link.name.end());
    if (ntfs_link(file.get(), folder.get(), name.data(), static_cast<u8>(name.size())) != 0) {
      NtfsFailed("cannot link " + tree_.PathOf(item));
    }
    // In this order: the file's sizes are written into its folders through copies of their own.
    folder.Close();
    file.Close();
  }
}

void NtfsMaker::AddDosName(std::size_t item) {
  NtfsInode file = NtfsInode::Open(volume_.get(), references_[item]);
  NtfsInode folder = NtfsInode::Open(volume_.get(), references_[tree_.items[item].parent]);
  const std::string name = "D" + std::to_string(item % 10'000'000) + ".DOS";
  // The library closes both.
  if (ntfs_set_ntfs_dos_name(file.Release(), folder.Release(), name.c_str(), name.size(), 0) != 0) {
    NtfsFailed("cannot give a DOS name to " + tree_.PathOf(item));
  }
}

// False when the record has no room for it.
bool NtfsMaker::WriteResident(NtfsInode& file, std::size_t item, std::size_t stream) {
  const PlannedStream& planned = tree_.items[item].streams[stream];
  if (planned.sparse || planned.payload.size > kResidentLimit) return false;
  // What is added later must still find room: headers and run lists of other streams, names.
  std::size_t later = 24 + 120 * (tree_.items[item].streams.size() - stream - 1);
  for (const PlannedItem::Link& link : tree_.items[item].links) later += 104 + 2 * link.name.size();
  if (tree_.items[item].dos_name) later += 128;
  const std::size_t needed = 24 + 2 * planned.name.size() + planned.payload.size + later;
  const std::size_t used = le32_to_cpu(file->mrec->bytes_in_use);
  if (needed > volume_->mft_record_size - used) return planned.payload.size == 0 && stream == 0;

  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(planned.payload.size));
  planned.payload.Fill(0, bytes);
  const auto size = static_cast<s64>(bytes.size());
  if (planned.name.empty()) {
    const auto data = OpenAttribute(file.get(), AT_DATA, u"");
    const bool written = data != nullptr &&
                         (size == 0 || ntfs_attr_pwrite(data.get(), 0, size, bytes.data()) == size);
    if (!written) {
      NtfsFailed("cannot write " + tree_.PathOf(item));
    }
  } else {
    std::vector<ntfschar> name(planned.name.begin(), planned.name.end());
    if (ntfs_attr_add(file.get(), AT_DATA, name.data(), static_cast<u8>(name.size()), bytes.data(),
                      size) != 0) {
      NtfsFailed("cannot add a stream to " + tree_.PathOf(item));
    }
  }
  AddToManifest(tree_, item, planned, HashStream(planned), manifest_);
  return true;
}

void NtfsMaker::WriteCompressed(NtfsInode& file, std::size_t item, std::size_t stream) {
  const PlannedStream& planned = tree_.items[item].streams[stream];
  // An empty stream that is opened after this is compressed.
  file->flags = static_cast<FILE_ATTR_FLAGS>(file->flags | FILE_ATTR_COMPRESSED);
  NInoSetDirty(file.get());
  const auto data = OpenAttribute(file.get(), AT_DATA, u"");
  if (data == nullptr) NtfsFailed("cannot open " + tree_.PathOf(item));
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(planned.payload.size));
  planned.payload.Fill(0, bytes);
  for (std::size_t done = 0; done < bytes.size();) {
    const s64 put = ntfs_attr_pwrite(data.get(), static_cast<s64>(done),
                                     static_cast<s64>(bytes.size() - done), bytes.data() + done);
    if (put <= 0) NtfsFailed("cannot write compressed " + tree_.PathOf(item));
    done += static_cast<std::size_t>(put);
  }
  if (ntfs_attr_pclose(data.get()) != 0) NtfsFailed("cannot finish " + tree_.PathOf(item));
  AddToManifest(tree_, item, planned, HashStream(planned), manifest_);
}

void NtfsMaker::Defer(std::size_t item, std::size_t stream, Deferred::Kind kind) {
  deferred_.push_back({item, stream, kind, {}, {}});
}

// Long run lists need further file records. Those of deleted files leave room for them, so that
// $MFT need not grow when everything has its place.
void NtfsMaker::GrowTable() {
  constexpr std::int64_t kRunsInRecord = 100;
  const auto items = static_cast<std::int64_t>(tree_.items.size());
  std::int64_t records = 16 + items / 50;
  records += recipe_.shredded * (recipe_.shredded_extents / kRunsInRecord + 1);
  records += recipe_.mft_pieces / kRunsInRecord;
  if (recipe_.pieces > 30) records += items * recipe_.pieces / kRunsInRecord;

  std::vector<std::uint64_t> references;
  const auto name_of = [](std::size_t number) { return Wide("growth " + std::to_string(number)); };
  NtfsInode root = NtfsInode::Open(volume_.get(), FILE_root);
  for (std::size_t i = 0; i < static_cast<std::size_t>(records); ++i) {
    std::u16string name = name_of(i);
    std::vector<ntfschar> units(name.begin(), name.end());
    NtfsInode file(ntfs_create(root.get(), cpu_to_le32(kSecurityId), units.data(),
                               static_cast<u8>(units.size()), S_IFREG));
    if (file.get() == nullptr) NtfsFailed("cannot make $MFT grow");
    references.push_back(file->mft_no);
    file.CloseIn(root);
  }
  root.Close();
  for (std::size_t i = 0; i < references.size(); ++i) {
    std::u16string name = name_of(i);
    std::vector<ntfschar> units(name.begin(), name.end());
    NtfsInode folder = NtfsInode::Open(volume_.get(), FILE_root);
    NtfsInode file = NtfsInode::Open(volume_.get(), references[i]);
    // The library closes both.
    if (ntfs_delete(volume_.get(), nullptr, file.Release(), folder.Release(), units.data(),
                    static_cast<u8>(units.size())) != 0) {
      NtfsFailed("cannot free file records");
    }
  }
}

// Reads what the library has placed and frees its clusters; items without any are dropped.
void NtfsMaker::TakeUp(ClusterSet& clusters) {
  for (Deferred& deferred : deferred_) {
    if (deferred.kind == Deferred::Kind::New) continue;
    const NtfsInode inode = NtfsInode::Open(volume_.get(), references_[deferred.item]);
    const auto attribute = deferred.kind == Deferred::Kind::Folder
                               ? OpenAttribute(inode.get(), AT_INDEX_ALLOCATION, kFolderIndex)
                               : OpenAttribute(inode.get(), AT_DATA, u"");
    if (attribute == nullptr || !NAttrNonResident(attribute.get())) continue;
    TakeUpRuns(deferred, RunsOf(attribute.get()), clusters);
  }
  if (recipe_.mft_pieces > 1) {
    // The beginning stays where the boot sector says.
    std::vector<PlacedRun> runs;
    for (const PlacedRun& run : RunsOf(volume_->mft_na)) {
      const std::int64_t skip = std::clamp<std::int64_t>(kTableStart - run.vcn, 0, run.count);
      if (skip < run.count) runs.push_back({run.vcn + skip, run.lcn + skip, run.count - skip});
    }
    deferred_.push_back({0, 0, Deferred::Kind::Table, {}, {}});
    TakeUpRuns(deferred_.back(), runs, clusters);
  }
  std::erase_if(deferred_, [](const Deferred& deferred) {
    return deferred.kind != Deferred::Kind::New && deferred.old_runs.empty();
  });
  // $MFT and folders first, parents before children: storing a file's runs updates its record and
  // its folders, whose old clusters may be others' by then.
  std::stable_sort(deferred_.begin(), deferred_.end(), [](const Deferred& a, const Deferred& b) {
    return std::min(a.kind, Deferred::Kind::New) < std::min(b.kind, Deferred::Kind::New);
  });
}

void NtfsMaker::TakeUpRuns(Deferred& deferred, const std::vector<PlacedRun>& runs,
                           ClusterSet& clusters) {
  deferred.old_runs = runs;
  for (const PlacedRun& run : runs) {
    const std::size_t at = deferred.old_bytes.size();
    deferred.old_bytes.resize(at + static_cast<std::size_t>(run.count) * cluster_);
    image_.Read(Places().Of(run.lcn), std::span(deferred.old_bytes).subspan(at));
    clusters.Set(run.lcn, run.count, false);
  }
}

void NtfsMaker::ScaleFiles(const ClusterSet& clusters) {
  std::int64_t taken = clusters.Size() - clusters.Free();
  for (const Deferred& deferred : deferred_) {
    for (const PlacedRun& run : deferred.old_runs) taken += run.count;
    const bool is_new = deferred.kind == Deferred::Kind::New;
    if (is_new && StreamOf(deferred).payload.size <= kResidentLimit) ++taken;
  }
  // Compressed ones are done, their size is what they have.
  std::int64_t compressed = 0;
  for (const PlannedItem& item : tree_.items) {
    for (const PlannedStream& stream : item.streams) {
      if (stream.compressed) compressed += stream.Clusters(cluster_);
    }
  }
  const double fill = recipe_.fill > 0 ? recipe_.fill : kRoomyFill;
  const auto wanted =
      static_cast<std::int64_t>(fill * static_cast<double>(clusters.Size())) - taken + compressed;
  if (recipe_.fill > 0 || ClustersOf(tree_, cluster_, kResidentLimit) > wanted) {
    ScaleTree(tree_, cluster_, kResidentLimit, wanted);
  }
}

std::vector<VcnRange> RangesOf(const std::vector<PlacedRun>& runs) {
  std::vector<VcnRange> ranges;
  for (const PlacedRun& run : runs) {
    if (!ranges.empty() && ranges.back().vcn + ranges.back().count == run.vcn) {
      ranges.back().count += run.count;
    } else {
      ranges.push_back({run.vcn, run.count});
    }
  }
  return ranges;
}

SpaceRequest NtfsMaker::RequestFor(const Deferred& deferred) {
  SpaceRequest request;
  const bool is_new = deferred.kind == Deferred::Kind::New;
  request.ranges = is_new ? StreamOf(deferred).Allocated(cluster_) : RangesOf(deferred.old_runs);
  std::int64_t count = 0;
  for (const VcnRange& range : request.ranges) count += range.count;
  if (deferred.kind == Deferred::Kind::Table) {
    request.pieces = recipe_.mft_pieces - 1;
  } else if (deferred.kind == Deferred::Kind::Folder) {
    const std::uint64_t key = KeyOf(recipe_.seed, tree_.PathOf(deferred.item));
    request.pieces = PiecesFor(recipe_, key, true, count);
  } else {
    const PlannedStream& stream = StreamOf(deferred);
    request.pieces = stream.exact_extents > 0
                         ? stream.exact_extents
                         : PiecesFor(recipe_, stream.payload.key, false, count);
  }
  return request;
}

void NtfsMaker::Place() {
  ClusterSet clusters = volume_.ReadBitmap();
  TakeUp(clusters);
  ScaleFiles(clusters);
  std::vector<SpaceRequest> requests;
  for (const Deferred& deferred : deferred_) requests.push_back(RequestFor(deferred));
  PlaceAll(requests, clusters, random_);
  volume_.WriteBitmap(clusters);
  // Otherwise further streams of compressed files would be compressed when they are opened.
  volume_->state &= ~(1UL << NV_Compression);
  for (std::size_t i = 0; i < deferred_.size(); ++i) Apply(deferred_[i], requests[i].runs);
}

void NtfsMaker::Apply(const Deferred& deferred, const std::vector<PlacedRun>& runs) {
  if (deferred.kind == Deferred::Kind::Table) return ApplyTable(deferred, runs);
  NtfsInode file = NtfsInode::Open(volume_.get(), references_[deferred.item]);
  if (deferred.kind == Deferred::Kind::New) {
    ApplyNew(file, deferred, runs);
  } else {
    const bool is_folder = deferred.kind == Deferred::Kind::Folder;
    const auto attribute = is_folder ? OpenAttribute(file.get(), AT_INDEX_ALLOCATION, kFolderIndex)
                                     : OpenAttribute(file.get(), AT_DATA, u"");
    if (attribute == nullptr) NtfsFailed("cannot open " + tree_.PathOf(deferred.item));
    RunsOf(attribute.get());  // the library replaces only what it has read
    SetRuns(attribute.get(), runs, attribute->allocated_size / cluster_);
    WriteMoved(deferred, runs);
  }
  file.Close();
}

void NtfsMaker::ApplyTable(const Deferred& deferred, const std::vector<PlacedRun>& runs) {
  WriteMoved(deferred, runs);
  std::vector<PlacedRun> all;
  for (const PlacedRun& run : RunsOf(volume_->mft_na)) {
    if (run.vcn >= kTableStart) break;
    all.push_back({run.vcn, run.lcn, std::min(run.count, kTableStart - run.vcn)});
  }
  all.insert(all.end(), runs.begin(), runs.end());
  SetRuns(volume_->mft_na, all, all.back().vcn + all.back().count);
  if (ntfs_inode_sync(volume_->mft_ni) != 0) NtfsFailed("cannot store the places of $MFT");
}

void NtfsMaker::ApplyNew(NtfsInode& file, const Deferred& deferred,
                         const std::vector<PlacedRun>& runs) {
  const PlannedStream& planned = StreamOf(deferred);
  const auto failed = [&] { NtfsFailed("cannot make the data of " + tree_.PathOf(deferred.item)); };
  std::vector<ntfschar> name(planned.name.begin(), planned.name.end());
  const auto length = static_cast<u8>(name.size());
  if (length > 0 && ntfs_attr_add(file.get(), AT_DATA, name.data(), length, nullptr, 0) != 0) {
    failed();
  }
  const auto attribute = OpenAttribute(file.get(), AT_DATA, planned.name);
  if (attribute == nullptr) failed();
  const auto find = [&](ntfs_attr_search_ctx* context) {
    ntfs_attr_reinit_search_ctx(context);
    if (ntfs_attr_lookup(AT_DATA, attribute->name, attribute->name_len, CASE_SENSITIVE, 0, nullptr,
                         0, context) != 0) {
      failed();
    }
  };
  const std::unique_ptr<ntfs_attr_search_ctx, void (*)(ntfs_attr_search_ctx*)> context(
      ntfs_attr_get_search_ctx(file.get(), nullptr), ntfs_attr_put_search_ctx);
  if (context == nullptr) failed();
  find(context.get());
  std::vector<PlacedRun> provisional;
  if (ntfs_attr_make_non_resident(attribute.get(), context.get()) != 0) {
    if (errno != ENOSPC) failed();
    // No room in the file's record. The library makes some when a stream grows.
    const s64 grown =
        std::max<s64>(static_cast<s64>(planned.payload.size), volume_->mft_record_size + 1);
    if (ntfs_attr_truncate(attribute.get(), grown) != 0) failed();
    provisional = RunsOf(attribute.get());
  }
  const auto size = static_cast<s64>(planned.payload.size);
  const std::int64_t end_vcn = (size + cluster_ - 1) / cluster_;
  attribute->allocated_size = end_vcn * cluster_;
  attribute->data_size = attribute->initialized_size = size;
  SetRuns(attribute.get(), runs, end_vcn);
  for (const PlacedRun& run : provisional) {
    if (ntfs_bitmap_clear_run(volume_->lcnbmp_na, run.lcn, run.count) != 0) failed();
  }
  find(context.get());  // storing runs may have moved it to another record
  context->attr->data_size = context->attr->initialized_size = cpu_to_le64(planned.payload.size);
  ntfs_inode_mark_dirty(context->ntfs_ino);
  if (length == 0) {
    file->data_size = size;
    file->allocated_size = attribute->allocated_size;
    NInoFileNameSetDirty(file.get());
  }
  const std::string hash = WriteStream(image_, Places(), planned, runs);
  AddToManifest(tree_, deferred.item, planned, hash, manifest_);
}

void NtfsMaker::WriteMoved(const Deferred& deferred, const std::vector<PlacedRun>& runs) {
  std::size_t at = 0;
  for (const PlacedRun& run : runs) {
    const auto bytes = static_cast<std::size_t>(run.count) * cluster_;
    image_.Write(Places().Of(run.lcn), std::span(deferred.old_bytes).subspan(at, bytes));
    at += bytes;
  }
}

}  // namespace

Manifest MakeNtfs(const Recipe& recipe, const std::string& image_path) {
  return NtfsMaker(recipe, image_path).Make();
}

}  // namespace vornalux::making
