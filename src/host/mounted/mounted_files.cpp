// SPDX-License-Identifier: GPL-2.0-or-later
// The questions about files and folders by path.
#include <algorithm>
#include <span>
#include <utility>

#include "host/mounted/mounted_platform.h"
#include "text/ascii_case.h"
#include "text/windows_path.h"

namespace vornalux {

namespace {

constexpr std::size_t kReadBytesLimit = std::size_t{64} << 20;
constexpr std::size_t kReadBytesPiece = std::size_t{1} << 20;

// "." and ".." as Windows gives them, then what the folder holds.
class ListingSearch final : public FolderSearch {
 public:
  ListingSearch(std::shared_ptr<const FolderListing> listing, bool is_root)
      : listing_(std::move(listing)), dots_(is_root ? 0 : 2) {}

  bool Next(FolderEntry& entry) override {
    if (dots_ > 0) {
      entry.name = dots_ == 2 ? "." : "..";
      entry.attributes = attribute::kDirectory;
      --dots_;
      return true;
    }
    if (next_ >= listing_->Size()) return false;
    entry.name = listing_->Name(next_);
    entry.attributes = listing_->Attributes(next_);
    ++next_;
    return true;
  }

 private:
  std::shared_ptr<const FolderListing> listing_;
  int dots_;
  std::size_t next_ = 0;
};

}  // namespace

ErrorCode MountedPlatform::MayOpen(MountedVolume& /*volume*/, ItemId /*item*/) {
  return error::kSuccess;
}

ErrorCode MountedPlatform::Resolve(std::string_view path, Found& out) {
  const std::optional<WindowsPath> split = SplitPath(path);
  if (!split) return error::kInvalidName;
  WindowsPath parts = *split;
  out.drive = FindDrive(parts.drive);
  if (out.drive == nullptr) return error::kPathNotFound;

  FolderItem item;
  if (const ErrorCode error = out.drive->tree.FindFolder(parts.folder, item.id)) return error;
  item.attributes = attribute::kDirectory;
  std::string_view suffix;
  if (parts.folder.empty() && (parts.name.empty() || parts.name[0] == ':')) {
    suffix = parts.name;  // the root itself or a stream of it
  } else {
    const ItemId folder = item.id;
    ErrorCode error = out.drive->tree.Find(folder, parts.name, item);
    // Names made by other systems may hold a colon, so the whole is tried before its parts.
    const std::size_t colon = parts.name.find(':');
    if (error == error::kFileNotFound && colon != std::string_view::npos) {
      suffix = parts.name.substr(colon);
      parts.name = parts.name.substr(0, colon);
      if (!IsPlainName(parts.name)) return error::kInvalidName;
      error = out.drive->tree.Find(folder, parts.name, item);
    }
    if (error == error::kFileNotFound && !IsPlainName(parts.name)) return error::kInvalidName;
    if (error != error::kSuccess) return error;
  }
  const ErrorCode error = ResolveStream(item, suffix, out);
  return error == error::kSuccess && parts.of_folder && !out.folder ? error::kInvalidName : error;
}

ErrorCode MountedPlatform::SpellAsListed(std::string& path) {
  const std::optional<WindowsPath> split = SplitPath(path);
  if (!split || split->name.empty()) return error::kInvalidName;
  Drive* const drive = FindDrive(split->drive);
  if (drive == nullptr) return error::kPathNotFound;
  ItemId item = drive->volume->Root();
  std::uint32_t attributes = attribute::kDirectory;
  std::string spelled = {split->drive, ':'};
  for (std::size_t at = 3; at < path.size();) {
    if ((attributes & attribute::kDirectory) == 0) return error::kPathNotFound;
    const std::size_t end = std::min(path.find('\\', at), path.size());
    std::shared_ptr<const FolderListing> listing;
    if (const ErrorCode error = drive->tree.Listing(item, listing)) {
      return Noted(spelled, drive, error);
    }
    const std::size_t found =
        listing->Find(*drive->volume, std::string_view(path).substr(at, end - at));
    if (found == FolderListing::kNone) return error::kFileNotFound;
    spelled.append("\\").append(listing->Name(found));
    item = listing->Id(found);
    attributes = listing->Attributes(found);
    at = end + 1;
  }
  path = std::move(spelled);
  return error::kSuccess;
}

ErrorCode MountedPlatform::ResolveStream(const FolderItem& item, std::string_view suffix,
                                         Found& out) {
  out.folder = (item.attributes & attribute::kDirectory) != 0;
  out.stream = {.item = item.id, .stream = {}};
  if (suffix.empty()) return error::kSuccess;
  if (!IsStreamSuffix(suffix)) return error::kInvalidName;

  if (!out.folder && EqualIgnoringAsciiCase(suffix, "::$DATA")) return error::kSuccess;
  if (out.folder && (EqualIgnoringAsciiCase(suffix, "::$INDEX_ALLOCATION") ||
                     EqualIgnoringAsciiCase(suffix, ":$I30:$INDEX_ALLOCATION"))) {
    return error::kSuccess;
  }
  out.stream.stream = suffix;
  out.folder = false;
  std::vector<Extent> extents;
  return out.drive->volume->Extents(out.stream, extents);
}

ErrorCode MountedPlatform::Locate(std::string_view path, FileFlags flags, Found& out) {
  if (const ErrorCode error = Resolve(path, out)) return error;
  if (out.folder && flags != FileFlags::BackupSemantics) return error::kAccessDenied;
  return MayOpen(*out.drive->volume, out.stream.item);
}

OpenedFile MountedPlatform::OpenPath(const std::string& path, FileAccess /*access*/,
                                     FileFlags flags) {
  Found found;
  if (const ErrorCode error = Noted(path, found.drive, Locate(path, flags, found))) {
    return {.handle = kInvalidHandle, .error = error};
  }
  const Handle handle = NextHandle();
  OpenFile file = std::exchange(spare_file_, {});
  file.found = std::move(found);
  file.path = path;
  file.extents_known = false;
  files_.emplace(handle, std::move(file));
  return {.handle = handle, .error = error::kSuccess};
}

void MountedPlatform::CloseFile(Handle file) {
  const auto open = files_.find(file);
  if (open == files_.end()) return;
  spare_file_ = std::move(open->second);
  files_.erase(open);
}

ErrorCode MountedPlatform::LoadExtents(OpenFile& file) {
  const std::uint64_t moves = file.found.drive->moves;
  if (file.extents_known && file.extents_moves == moves) return error::kSuccess;
  file.extents.clear();
  file.extents_known = false;
  Drive* const drive = file.found.drive;
  const ErrorCode error =
      Noted(file.path, drive, drive->volume->Extents(file.found.stream, file.extents));
  file.extents_known = error == error::kSuccess;
  file.extents_moves = moves;
  return error;
}

ErrorCode MountedPlatform::RetrievalPointers(Handle file, std::int64_t starting_vcn,
                                             std::size_t max_extents, ExtentChunk& out) {
  OpenFile* open = FileOf(file);
  if (open == nullptr) return error::kInvalidHandle;
  if (starting_vcn < 0 || max_extents == 0) return error::kInvalidParameter;
  if (const ErrorCode error = LoadExtents(*open)) return error;

  const std::vector<Extent>& all = open->extents;
  const auto first =
      std::upper_bound(all.begin(), all.end(), starting_vcn,
                       [](std::int64_t vcn, const Extent& extent) { return vcn < extent.NextVcn; });
  if (first == all.end()) return error::kHandleEof;
  const auto left = static_cast<std::size_t>(all.end() - first);
  const std::size_t count = std::min(left, max_extents);
  out.starting_vcn = first == all.begin() ? 0 : std::prev(first)->NextVcn;
  out.extents.assign(first, first + static_cast<std::ptrdiff_t>(count));
  return count < left ? error::kMoreData : error::kSuccess;
}

ErrorCode MountedPlatform::StreamNames(Handle file, std::vector<std::string>& out) {
  const OpenFile* open = FileOf(file);
  if (open == nullptr) return error::kInvalidHandle;
  out.clear();
  Drive* const drive = open->found.drive;
  return Noted(open->path, drive, drive->volume->StreamNames(open->found.stream.item, out));
}

std::unique_ptr<FolderSearch> MountedPlatform::FindFirst(const std::string& pattern,
                                                         const std::function<bool()>& go_on) {
  const std::optional<WindowsPath> parts = SplitPath(pattern);
  if (!parts || parts->name != "*" || parts->of_folder) return nullptr;
  Drive* const drive = FindDrive(parts->drive);
  if (drive == nullptr) return nullptr;
  const bool is_root = parts->folder.empty();
  const auto path = std::string_view(pattern).substr(0, pattern.size() - (is_root ? 1 : 2));
  std::shared_ptr<const FolderListing> listing;
  if (Noted(path, drive, FindListing(*drive, parts->folder, go_on, listing)) != error::kSuccess) {
    return nullptr;
  }
  return std::make_unique<ListingSearch>(std::move(listing), is_root);
}

ErrorCode MountedPlatform::FindListing(Drive& drive, std::string_view folder,
                                       const std::function<bool()>& go_on,
                                       std::shared_ptr<const FolderListing>& out) {
  ItemId id = 0;
  if (const ErrorCode error = drive.tree.FindFolder(folder, id)) return error;
  if (const ErrorCode error = MayOpen(*drive.volume, id)) return error;
  return drive.tree.Listing(id, out, go_on);
}

ErrorCode MountedPlatform::ReadBytes(const std::string& path, std::string& out) {
  Found found;
  const ErrorCode error = Locate(path, FileFlags::None, found);
  return Noted(path, found.drive, error != error::kSuccess ? error : ReadAll(found, out));
}

ErrorCode MountedPlatform::ReadAll(const Found& found, std::string& out) {
  std::string content;
  for (bool more = true; more;) {
    const std::size_t at = content.size();
    content.resize(at + kReadBytesPiece);
    const std::span<std::uint8_t> piece(reinterpret_cast<std::uint8_t*>(content.data()) + at,
                                        kReadBytesPiece);
    std::size_t done = 0;
    if (const ErrorCode error = found.drive->volume->Read(found.stream, at, piece, done)) {
      return error;
    }
    content.resize(at + done);
    if (content.size() > kReadBytesLimit) return error::kNotEnoughMemory;
    more = done == kReadBytesPiece;
  }
  out = std::move(content);
  return error::kSuccess;
}

}  // namespace vornalux
