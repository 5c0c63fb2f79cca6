// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/folder_tree.h"

#include <bit>
#include <optional>
#include <utility>

namespace vornalux {

namespace {

std::uint32_t HashName(std::string_view folded) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : folded) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

}  // namespace

FolderListing::FolderListing(const MountedVolume& volume, const std::vector<FolderItem>& items) {
  std::size_t name_bytes = 0;
  for (const FolderItem& item : items) name_bytes += item.name.size();
  names_.reserve(name_bytes);
  entries_.reserve(items.size());
  slots_.resize(std::bit_ceil(items.size() + items.size() / 2 + 1));

  const std::size_t mask = slots_.size() - 1;
  for (const FolderItem& item : items) {
    const std::uint32_t hash = HashName(volume.FoldName(item.name));
    entries_.push_back({.id = item.id,
                        .name_at = names_.size(),
                        .name_size = static_cast<std::uint32_t>(item.name.size()),
                        .attributes = item.attributes,
                        .hash = hash});
    names_ += item.name;
    std::size_t slot = hash & mask;
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<std::uint32_t>(entries_.size());
  }
}

std::string_view FolderListing::Name(std::size_t index) const {
  const Entry& entry = entries_[index];
  return std::string_view(names_).substr(entry.name_at, entry.name_size);
}

std::size_t FolderListing::Find(const MountedVolume& volume, std::string_view name) const {
  const std::string folded = volume.FoldName(name);
  const std::uint32_t hash = HashName(folded);
  const std::size_t mask = slots_.size() - 1;
  std::size_t found = kNone;
  for (std::size_t slot = hash & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t index = slots_[slot] - 1;
    if (entries_[index].hash != hash) continue;
    // Other systems make names that differ in case only: each must stay reachable.
    if (Name(index) == name) return index;
    if (found == kNone && volume.FoldName(Name(index)) == folded) found = index;
  }
  return found;
}

ErrorCode FolderTree::Listing(ItemId folder, std::shared_ptr<const FolderListing>& out) {
  auto known = listings_.find(folder);
  if (known == listings_.end()) {
    std::vector<FolderItem> items;
    if (const ErrorCode error = volume_->ListFolder(folder, items)) return error;
    known = listings_.emplace(folder, std::make_shared<const FolderListing>(*volume_, items)).first;
  }
  out = known->second;
  return error::kSuccess;
}

ErrorCode FolderTree::Find(ItemId folder, std::string_view name, FolderItem& out) {
  std::shared_ptr<const FolderListing> listing;
  if (const ErrorCode error = Listing(folder, listing)) return error;
  const std::size_t index = listing->Find(*volume_, name);
  if (index != FolderListing::kNone) {
    out = {.name = std::string(listing->Name(index)),
           .attributes = listing->Attributes(index),
           .id = listing->Id(index)};
    return error::kSuccess;
  }
  std::optional<FolderItem> hidden = volume_->HiddenItem(folder, name);
  if (!hidden) return error::kFileNotFound;
  out = *std::move(hidden);
  return error::kSuccess;
}

ErrorCode FolderTree::FindFolder(std::string_view path, ItemId& out) {
  out = volume_->Root();
  if (path.empty()) return error::kSuccess;
  if (path == last_path_) {
    out = last_folder_;
    return error::kSuccess;
  }
  for (std::string_view rest = path; !rest.empty();) {
    const std::size_t end = rest.find('\\');
    FolderItem item;
    const ErrorCode error = Find(out, rest.substr(0, end), item);
    if (error == error::kFileNotFound) return error::kPathNotFound;
    if (error != error::kSuccess) return error;
    if ((item.attributes & attribute::kDirectory) == 0) return error::kPathNotFound;
    out = item.id;
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
  last_path_ = path;
  last_folder_ = out;
  return error::kSuccess;
}

}  // namespace vornalux
