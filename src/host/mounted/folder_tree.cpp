// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/folder_tree.h"

#include <algorithm>
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

const FolderTree::Step* FolderTree::StepTo(std::string_view path) const {
  if (!last_path_.starts_with(path)) return nullptr;
  const auto step =
      std::lower_bound(way_.begin(), way_.end(), path.size(),
                       [](const Step& each, std::size_t end) { return each.end < end; });
  return step != way_.end() && step->end == path.size() ? &*step : nullptr;
}

void FolderTree::DropStepsNotTo(std::string_view path) {
  const std::string_view last = last_path_;
  const auto leads_there = [&](std::size_t end) {
    return end < path.size() && path[end] == '\\' && path.starts_with(last.substr(0, end));
  };
  while (!way_.empty() && !leads_there(way_.back().end)) way_.pop_back();
}

ErrorCode FolderTree::FindFolder(std::string_view path, ItemId& out) {
  out = volume_->Root();
  if (path.empty()) return error::kSuccess;
  if (const Step* const known = StepTo(path)) {
    out = known->folder;
    return error::kSuccess;
  }
  DropStepsNotTo(path);
  std::size_t start = 0;
  if (!way_.empty()) {
    out = way_.back().folder;
    start = way_.back().end + 1;
  }
  last_path_.resize(way_.empty() ? 0 : way_.back().end);
  while (start <= path.size()) {
    const std::size_t end = std::min(path.find('\\', start), path.size());
    if (end == start) return error::kInvalidName;
    FolderItem item;
    const ErrorCode error = Find(out, path.substr(start, end - start), item);
    if (error == error::kFileNotFound) return error::kPathNotFound;
    if (error != error::kSuccess) return error;
    if ((item.attributes & attribute::kDirectory) == 0) return error::kPathNotFound;
    out = item.id;
    last_path_.append(path.substr(last_path_.size(), end - last_path_.size()));
    way_.push_back({end, out});
    start = end + 1;
  }
  return error::kSuccess;
}

}  // namespace vornalux
