// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/folder_tree.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace vornalux {

ErrorCode FolderTree::Listing(ItemId folder, std::shared_ptr<const FolderListing>& out,
                              const std::function<bool()>& go_on) {
  const auto known = listings_.find(folder);
  if (known != listings_.end()) {
    out = known->second;
    return error::kSuccess;
  }
  auto listing = std::make_shared<FolderListing>(go_on);
  if (const ErrorCode error = volume_->List(folder, *listing)) return error;
  listing->Finish();
  out = listing;
  listings_.emplace(folder, std::move(listing));
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
