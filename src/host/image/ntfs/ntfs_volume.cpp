// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_volume.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "host/image/device/little_endian.h"
#include "host/image/ntfs/ntfs_folder.h"
#include "host/image/ntfs/ntfs_runs.h"
#include "host/image/ntfs/ntfs_shrink.h"
#include "host/image/ntfs/ntfs_soundness.h"
#include "host/image/ntfs/open_ntfs.h"
#include "host/image/volume/refused.h"
#include "host/image/volume/unclean_text.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kFirstOrdinaryRecord = 24;
// What the program counts clusters with.
constexpr std::int64_t kMostClusters = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kFixedMftClusters = 16;  // Windows never moves the start of $MFT either

std::string Label(const NtfsMount& mount) {
  const SearchContext context(ntfs_attr_get_search_ctx(mount.Volume()->vol_ni, nullptr));
  if (!context || FindAttribute({AT_VOLUME_NAME, {}}, 0, context.get()) != 0) return {};
  const ATTR_RECORD* record = context->attr;
  if (record->non_resident) return {};
  const auto* value =
      reinterpret_cast<const std::uint8_t*>(record) + le16_to_cpu(record->value_offset);
  return ToWtf8(FromUnits(reinterpret_cast<const ntfschar*>(value),
                          le32_to_cpu(record->value_length) / sizeof(ntfschar)));
}

// What the library had to say, as a part of a line; empty when nothing.
std::string LibraryDetails() {
  std::string messages = TakeLibraryMessages();
  std::replace(messages.begin(), messages.end(), '\n', ' ');
  return messages.empty() ? "" : " (" + messages + ")";
}

bool IsFolder(const ntfs_inode* inode) { return inode->mrec->flags & MFT_RECORD_IS_DIRECTORY; }

}  // namespace

NtfsVolume::NtfsVolume(VolumeStore store, Opening opening)
    : ImageVolume(std::move(store)), opening_(opening), device_(Device()) {
  CheckBootSector();
  Mount();
  CheckDirtyFlag();
  CheckSnapshots();
  LearnFacts();
  SetClusters(mount_->Volume()->nr_clusters, mount_->Volume()->cluster_size, 0);
  if (const int error = LoadBitmap()) RefuseMount(error);
  PinSnapshotFiles();
  CheckSoundness();
}

NtfsVolume::~NtfsVolume() { Close(); }

std::string NtfsVolume::Name() const {
  std::array<char, 17> serial{};
  std::snprintf(serial.data(), serial.size(), "%016llX",
                static_cast<unsigned long long>(facts_.serial));
  return "NTFS volume " + std::string(serial.data());
}

void NtfsVolume::Refuse(const std::string& reason, const std::string& remedy) const {
  throw VolumeRefused(Name() + " " + reason + ". " + remedy);
}

void NtfsVolume::RefuseMount(int error) {
  if (const std::optional<std::uint64_t> byte = TakeReadFault()) {
    Refuse("cannot be read at byte " + std::to_string(*byte) + " of it: the disk fails",
           "Save what can be read before anything else.");
  }
  const std::string details = LibraryDetails();
  switch (error) {
    case EIO:
    case EINVAL:
    case ENOENT:
    case ESPIPE:
      Refuse("is damaged" + details, "Let Windows check it: chkdsk /f.");
    default:
      Refuse("cannot be opened: " + std::string(std::strerror(error)) + details,
             "Mend that and try again.");
  }
}

void NtfsVolume::CheckBootSector() {
  std::array<std::uint8_t, 512> boot{};
  if (Device().Read(0, boot) || std::memcmp(boot.data() + 3, "NTFS    ", 8) != 0) {
    throw VolumeRefused(
        "This is no NTFS volume: its first sector cannot be read or does not say so.");
  }
  facts_.serial = LoadLittle<std::uint64_t>(boot, 0x48);
  const std::uint64_t sector = LoadLittle<std::uint16_t>(boot, 0x0B);
  const std::uint64_t sectors = LoadLittle<std::uint64_t>(boot, 0x28);
  if (sector == 0 || sectors == 0)
    Refuse("has a damaged boot sector", "Let Windows check it: chkdsk /f.");
  if (sectors > Device().Size() / sector) {
    Refuse("is cut short: its boot sector counts " + std::to_string(sectors) + " sectors of " +
               std::to_string(sector) + " bytes, but there are only " +
               std::to_string(Device().Size()) + " bytes",
           "Use the whole image or partition.");
  }
}

void NtfsVolume::Mount() {
  mount_ = NtfsMount::Open(device_, false);
  const int error = mount_ ? 0 : errno;
  device_.TakeError();
  if (error != 0) MountForLooking(error);
  if (ntfs_version_is_supported(mount_->Volume()) != 0) {
    Refuse("has a version of NTFS that is not supported", "There is nothing to mend.");
  }
}

// The library does not open the volume as one to be worked on; for looking, some of its reasons do
// not count.
void NtfsVolume::MountForLooking(int error) {
  switch (error) {
    case EPERM:
      Object(UncleanText(Name(), "is held by a hibernated Windows", true));
      break;
    case EOPNOTSUPP:
      Object(UncleanText(Name(), "has unfinished changes in its log file", true));
      break;
    case EROFS:
      Object(Name() + " needs a repair before it can be worked on" + LibraryDetails() +
             ". Mount it once for writing, with Windows or ntfs-3g.");
      break;
    default:
      RefuseMount(error);
  }
  TakeLibraryMessages();
  unclean_ = true;
  mount_ = NtfsMount::Open(device_, true);
  const int still = mount_ ? 0 : errno;
  device_.TakeError();
  if (still != 0) RefuseMount(still);
}

void NtfsVolume::CheckDirtyFlag() {
  dirty_ = mount_->Volume()->flags & VOLUME_IS_DIRTY;
  // Where the library objected, the same causes and remedies have been told.
  if (!dirty_ || unclean_ || opening_.recovering || opening_.allow_dirty) return;
  Object(UncleanText(Name(), "is marked dirty", true));
}

// In Windows a driver copies what a snapshot refers to before it changes. Here nothing does: a move
// changes what used to lie in its target, and later what is written to its source.
void NtfsVolume::CheckSnapshots() {
  snapshots_ = ReadSnapshotCatalog(Device());
  if (!snapshots_.Any() || opening_.recovering || opening_.drop_restore_points) return;
  Object(Name() + " has " + SnapshotText(snapshots_) +
         ". They refer to clusters by their place, so any move from outside Windows spoils them. "
         "Delete them in Windows (vssadmin delete shadows /for=X: /all), or give them up with "
         "--drop-restore-points.");
}

// The volume's header names the place of the catalog, and the catalog those of the stores.
void NtfsVolume::PinSnapshotFiles() {
  const std::string folder = FoldName("System Volume Information");
  const std::string mark = FoldName(kSnapshotFileMark);
  std::vector<FolderItem> items;
  if (ListFolder(root_, items) != error::kSuccess) return;
  const auto found = std::find_if(items.begin(), items.end(), [&](const FolderItem& item) {
    return (item.attributes & attribute::kDirectory) != 0 && FoldName(item.name) == folder;
  });
  std::vector<FolderItem> files;
  if (found == items.end() || ListFolder(found->id, files) != error::kSuccess) return;
  for (const FolderItem& file : files) {
    if (FoldName(file.name).find(mark) != std::string::npos) pinned_.insert(MREF(file.id));
  }
}

void NtfsVolume::LearnFacts() {
  const ntfs_volume* volume = mount_->Volume();
  if (volume->nr_clusters > kMostClusters) {
    Refuse("has " + std::to_string(volume->nr_clusters) + " clusters, and no more than " +
               std::to_string(kMostClusters) + " can be worked on",
           "Only larger clusters would mend that.");
  }
  facts_.file_system = "NTFS";
  facts_.label = Label(*mount_);
  facts_.bytes_per_sector = volume->sector_size;
  facts_.sectors_per_cluster = volume->cluster_size / volume->sector_size;
  facts_.total_clusters = volume->nr_clusters;
  zone_ = {volume->mft_zone_start, volume->mft_zone_end};
  upcase_ = UpcaseTable(volume->upcase, volume->upcase_len);
  const ntfs_inode* root = mount_->Inode(FILE_root);
  if (root == nullptr) RefuseMount(LibraryError());
  root_ = MK_MREF(FILE_root, le16_to_cpu(root->mrec->sequence_number));
}

int NtfsVolume::LoadBitmap() {
  ntfs_volume* volume = mount_->Volume();
  std::vector<ClusterRun> runs;
  if (const int error = ReadRuns(volume->lcnbmp_ni, {}, runs)) return error;
  const auto size = static_cast<std::uint64_t>((volume->nr_clusters + 7) / 8);
  if (static_cast<std::uint64_t>(volume->lcnbmp_na->data_size) < size) return EIO;

  std::vector<NtfsDevice::BitmapPiece> pieces;
  for (const ClusterRun& run : runs) {
    if (run.lcn < 0) return EIO;
    const std::uint64_t from = static_cast<std::uint64_t>(run.vcn) * ClusterSize();
    if (from >= size) break;
    const std::uint64_t length =
        std::min(static_cast<std::uint64_t>(run.count) * ClusterSize(), size - from);
    pieces.push_back({ClusterOffset(run.lcn), length, static_cast<std::int64_t>(from) * 8});
  }
  std::sort(pieces.begin(), pieces.end(),
            [](const auto& a, const auto& b) { return a.offset < b.offset; });

  std::vector<std::uint8_t> bytes(1U << 20);
  for (std::uint64_t at = 0; at < size;) {
    const auto length = static_cast<s64>(std::min<std::uint64_t>(bytes.size(), size - at));
    errno = 0;
    const s64 done = ntfs_attr_pread(volume->lcnbmp_na, static_cast<s64>(at), length, bytes.data());
    if (done <= 0) return LibraryError();
    Clusters().Load(static_cast<std::int64_t>(at) * 8,
                    std::span(bytes).first(static_cast<std::size_t>(done)));
    at += static_cast<std::uint64_t>(done);
  }
  device_.WatchBitmap(std::move(pieces), &Clusters());
  return 0;
}

NtfsGeometry NtfsVolume::RawGeometry() const {
  const ntfs_volume* volume = mount_->Volume();
  return {.cluster_size = volume->cluster_size,
          .clusters = volume->nr_clusters,
          .record_size = volume->mft_record_size,
          .mft_lcn = volume->mft_lcn,
          .mirror_lcn = volume->mftmirr_lcn};
}

// One marked dirty is refused to passes anyway, and often is not sound. But where an interrupted
// run is ended, the mark that says so is about to be taken away.
void NtfsVolume::CheckSoundness() {
  if (!opening_.recovering && (dirty_ || unclean_)) return;
  const std::string wrong = FindUnsoundness(Device(), RawGeometry(), Clusters());
  if (!wrong.empty()) {
    Object(Name() + " is not sound: " + wrong + ". Let Windows check it: chkdsk /f.");
  }
}

std::optional<NtfsVolumeData> NtfsVolume::NtfsData() const { return zone_; }

ErrorCode NtfsVolume::Failure(int error) {
  if (const std::error_code device_error = device_.TakeError()) return FromDevice(device_error);
  TakeLibraryMessages();
  switch (error) {
    case 0:
      return error::kSuccess;
    case ENOENT:
    case ESPIPE:  // a record past the end of $MFT
      return error::kFileNotFound;
    case ENOTDIR:
      return error::kPathNotFound;
    case EACCES:
    case EPERM:
      return error::kAccessDenied;
    case ENOSPC:
      return error::kDiskFull;
    case ENOMEM:
      return error::kNotEnoughMemory;
    case EROFS:
      return error::kWriteProtect;
    case ECANCELED:
      return error::kOperationAborted;
    case EOPNOTSUPP:
      return error::kNotSupported;
    default:
      return error::kFileCorrupt;
  }
}

ErrorCode NtfsVolume::Find(const StreamRef& stream, Place& out) {
  if (!mount_) return error::kNotReady;
  out.inode = mount_->Inode(stream.item);
  if (out.inode == nullptr) return Failure(LibraryError());
  std::optional<AttributeName> attribute = ParseStream(stream.stream, IsFolder(out.inode));
  if (!attribute) return error::kInvalidName;
  out.attribute = std::move(*attribute);
  return error::kSuccess;
}

ErrorCode NtfsVolume::List(ItemId folder, FolderListing& out) {
  if (!mount_) return error::kNotReady;
  ntfs_inode* inode = mount_->Inode(folder);
  if (inode == nullptr) return Failure(LibraryError());
  // A folder that holds one of its own parents would be listed for ever.
  const auto parent = parents_.find(MREF(folder));
  if (parent != parents_.end() && !HasNamesOnlyIn(inode, parent->second)) return Failure(EIO);

  // Other inodes may be asked for while this one is read, so it is nobody else's for now.
  const NtfsMount::InodeHandle own = mount_->TakeInode();
  ++listing_;
  const int listed = ListIndex(inode, upcase_, out);
  --listing_;
  // Also a list that seems complete may lack what the library could not read.
  if (const ErrorCode failure = Failure(listed)) return failure;
  for (std::size_t i = 0; i < out.Size(); ++i) {
    if (out.Attributes(i) & attribute::kDirectory) parents_[MREF(out.Id(i))] = MREF(folder);
  }
  return error::kSuccess;
}

std::string NtfsVolume::FoldName(std::string_view name) const {
  if (std::optional<std::string> ascii = upcase_.FoldAscii(name)) return *std::move(ascii);
  const std::optional<std::u16string> text = FromWtf8(name);
  return text ? ToWtf8(upcase_.Fold(*text)) : std::string(name);
}

std::optional<FolderItem> NtfsVolume::HiddenItem(ItemId folder, std::string_view name) {
  if (!mount_ || MREF(folder) != FILE_root || FoldName(name) != "$MFT") return std::nullopt;
  const std::uint64_t sequence = le16_to_cpu(mount_->Volume()->mft_ni->mrec->sequence_number);
  return FolderItem{"$MFT", attribute::kHidden | attribute::kSystem, MK_MREF(FILE_MFT, sequence)};
}

ErrorCode NtfsVolume::StreamNames(ItemId item, std::vector<std::string>& out) {
  out.clear();
  if (!mount_) return error::kNotReady;
  ntfs_inode* inode = mount_->Inode(item);
  if (inode == nullptr) return Failure(LibraryError());
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context) return error::kNotEnoughMemory;
  errno = 0;
  while (ntfs_attr_lookup(AT_DATA, nullptr, 0, CASE_SENSITIVE, 0, nullptr, 0, context.get()) == 0) {
    const ATTR_RECORD* record = context->attr;
    if (record->non_resident && record->lowest_vcn != 0) continue;  // continues one that was listed
    const auto* units = reinterpret_cast<const ntfschar*>(
        reinterpret_cast<const std::uint8_t*>(record) + le16_to_cpu(record->name_offset));
    out.push_back(":" + ToWtf8(FromUnits(units, record->name_length)) + ":$DATA");
  }
  return Failure(errno == ENOENT ? 0 : LibraryError());
}

ErrorCode NtfsVolume::Read(const StreamRef& stream, std::uint64_t offset,
                           std::span<std::uint8_t> out, std::size_t& done) {
  done = 0;
  Place place;
  if (const ErrorCode found = Find(stream, place)) return found;
  if (place.attribute.type != AT_DATA) return error::kAccessDenied;
  const AttributeHandle attribute = mount_->OpenAttribute(place.inode, place.attribute);
  if (!attribute) return Failure(LibraryError());
  while (done < out.size() && offset + done < static_cast<std::uint64_t>(attribute->data_size)) {
    errno = 0;
    const s64 piece = ntfs_attr_pread(attribute.get(), static_cast<s64>(offset + done),
                                      static_cast<s64>(out.size() - done), out.data() + done);
    if (piece <= 0) return Failure(LibraryError());
    done += static_cast<std::size_t>(piece);
  }
  return Failure(0);
}

ErrorCode NtfsVolume::Runs(const StreamRef& stream, std::vector<ClusterRun>& out) {
  out.clear();
  Place place;
  if (const ErrorCode found = Find(stream, place)) return found;
  const int error = ReadRuns(place.inode, place.attribute, out);
  // A folder whose index fits into its record has no clusters of its own.
  if (error == ENOENT && stream.stream.empty() && IsFolder(place.inode)) return error::kSuccess;
  return Failure(error);
}

ErrorCode NtfsVolume::MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t) {
  if (listing_ != 0) return error::kNotReady;
  const std::uint64_t record = MREF(stream.item);
  if (pinned_.contains(record)) return error::kAccessDenied;
  if (record >= kFirstOrdinaryRecord || record == FILE_root) return error::kSuccess;
  if (record != FILE_MFT) return error::kAccessDenied;

  Place place;
  if (const ErrorCode found = Find(stream, place)) return found;
  if (HasAttributeList(place.inode)) return error::kAccessDenied;
  if (place.attribute.IsUnnamed(AT_BITMAP)) return error::kSuccess;
  const bool movable = place.attribute.IsUnnamed(AT_DATA) && vcn >= kFixedMftClusters;
  return movable ? error::kSuccess : error::kAccessDenied;
}

ErrorCode NtfsVolume::Rewrite(const StreamRef& stream, const MovePlan& plan) {
  Place place;
  if (const ErrorCode found = Find(stream, place)) return found;
  const bool had_list = HasAttributeList(place.inode);
  const int error = RewriteRuns(*mount_, place.inode, place.attribute, plan);
  return error != 0 ? Failure(error) : Verify(stream, plan, had_list);
}

// Reads back what the library has made of the move: in a damaged record that may be something else.
ErrorCode NtfsVolume::Verify(const StreamRef& stream, const MovePlan& plan, bool had_list) {
  mount_->CloseInode();
  Place place;
  std::vector<ClusterRun> runs;
  if (const ErrorCode found = Find(stream, place)) return found;
  if (const int error = ReadRuns(place.inode, place.attribute, runs)) return Failure(error);
  JoinRuns(runs);
  if (runs != plan.after) return error::kFileCorrupt;
  // Through an attribute list the library searches more strictly than without one.
  const bool got_list = !had_list && HasAttributeList(place.inode);
  return !got_list || EveryStreamIsFound(place.inode) ? error::kSuccess : error::kFileCorrupt;
}

ErrorCode NtfsVolume::Reload() {
  mount_.reset();
  mount_ = NtfsMount::Open(device_, unclean_);
  int error = mount_ ? 0 : errno;
  if (error == 0) error = LoadBitmap();
  if (error != 0) mount_.reset();
  return Failure(error);
}

ErrorCode NtfsVolume::WriteDirtyFlag(bool dirty) {
  return mount_ ? Failure(mount_->WriteDirtyFlag(dirty)) : error::kNotReady;
}

// The boot area, the allocation bitmap, and the file records that stay where they are.
std::vector<ByteRange> NtfsVolume::StillRanges() {
  constexpr std::uint64_t kBootArea = 8192;
  std::vector<ByteRange> ranges = {{0, kBootArea}};
  if (!mount_) return ranges;
  const auto add = [&](ntfs_inode* inode, std::int64_t clusters) {
    std::vector<ClusterRun> runs;
    if (ReadRuns(inode, {AT_DATA, {}}, runs) != 0) return;
    for (const ClusterRun& run : runs) {
      const std::int64_t count = std::min(run.count, clusters - run.vcn);
      if (run.lcn < 0 || count <= 0) continue;
      ranges.push_back({ClusterOffset(run.lcn), static_cast<std::uint64_t>(count) * ClusterSize()});
    }
  };
  const ntfs_volume* volume = mount_->Volume();
  add(volume->mft_ni, kFixedMftClusters);
  add(volume->mftmirr_ni, volume->nr_clusters);
  add(volume->lcnbmp_ni, volume->nr_clusters);
  return ranges;
}

// What no longer fits must not be read, nor copied back by Windows: the snapshots go first, and are
// gone for good before any data is written, since they refer to free clusters too.
ErrorCode NtfsVolume::PrepareForMoves() {
  device_.EndReadingAhead();
  if (!opening_.drop_restore_points || !snapshots_.Any()) return error::kSuccess;
  if (const std::error_code error = ForgetSnapshots(Device())) return FromDevice(error);
  snapshots_dropped_ = true;
  return error::kSuccess;
}

std::optional<SmallestSize> NtfsVolume::Smallest() {
  if (!mount_) return std::nullopt;
  return FindSmallestNtfs(Device(), RawGeometry(), Clusters(), facts_.bytes_per_sector);
}

std::vector<std::string> NtfsVolume::Remarks() const {
  if (!snapshots_dropped_) return {};
  const bool one = snapshots_.times.size() == 1;
  const char* const did = OnlyLooking() ? " would be dropped."
                          : one         ? " was dropped."
                                        : " were dropped.";
  return {SnapshotCount(snapshots_) + did};
}

std::unique_ptr<ImageVolume> OpenNtfsVolume(VolumeStore store) {
  const NtfsVolume::Opening opening{.recovering = store.recovering,
                                    .allow_dirty = store.allow_dirty,
                                    .drop_restore_points = store.drop_restore_points};
  return std::make_unique<NtfsVolume>(std::move(store), opening);
}

}  // namespace vornalux
