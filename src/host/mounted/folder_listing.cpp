// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/folder_listing.h"

#include <bit>

#include "host/mounted/mounted_volume.h"

namespace vornalux {
namespace {

constexpr std::size_t kItemsBetweenQuestions = 1024;
constexpr std::size_t kNamesAhead = 64;
constexpr std::size_t kLongestName = 0xFFFF;  // bytes; far above that of any file system

std::uint32_t HashName(std::string_view folded) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : folded) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

}  // namespace

bool FolderListing::Add(std::string_view name, std::uint32_t attributes, ItemId id) {
  if (name.size() > kLongestName) return true;
  Entry entry{.id = id, .attributes = attributes};
  entry.name_at = names_.size() & 0xFFFF'FFFF'FFFF;
  entry.name_size = name.size() & kLongestName;
  names_ += name;
  entries_.push_back(entry);
  return !go_on_ || entries_.size() % kItemsBetweenQuestions != 0 || go_on_();
}

void FolderListing::Finish() {
  go_on_ = {};
  names_.shrink_to_fit();
  entries_.shrink_to_fit();
}

void FolderListing::MakeSlots(const MountedVolume& volume) const {
  std::vector<std::uint32_t> slots(std::bit_ceil(entries_.size() + entries_.size() / 2 + 1));
  const std::size_t mask = slots.size() - 1;
  bool unique = true;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    entries_[i].hash = HashName(volume.FoldName(NameOf(entries_[i])));
    std::size_t slot = entries_[i].hash & mask;
    for (; slots[slot] != 0; slot = (slot + 1) & mask) {
      const Entry& other = entries_[slots[slot] - 1];
      unique = unique && (other.hash != entries_[i].hash || NameOf(other) != NameOf(entries_[i]));
    }
    slots[slot] = static_cast<std::uint32_t>(i + 1);
  }
  slots_ = std::move(slots);
  unique_ = unique;
}

std::size_t FolderListing::Find(const MountedVolume& volume, std::string_view name) const {
  // Callers go through a folder item by item, perhaps leaving some out, and ask for each more than
  // once; then they may begin again.
  const auto among = [&](std::size_t first, std::size_t count) {
    const std::size_t end = std::min(first + count, entries_.size());
    for (std::size_t i = first; i < end; ++i) {
      if (Name(i) != name) continue;
      while (i > 0 && Name(i - 1) == name) --i;
      return last_found_ = i;
    }
    return kNone;
  };
  if (slots_.empty() && sorted_) {
    for (const std::size_t first : {last_found_, std::size_t{0}}) {
      if (const std::size_t near = among(first, kNamesAhead); near != kNone) return near;
    }
  }
  if (slots_.empty()) MakeSlots(volume);
  if (sorted_ || unique_) {
    if (const std::size_t near = among(last_found_, 2); near != kNone) return near;
  }
  const std::string folded = volume.FoldName(name);
  const std::uint32_t hash = HashName(folded);
  const std::size_t mask = slots_.size() - 1;
  std::size_t found = kNone;
  for (std::size_t slot = hash & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t index = slots_[slot] - 1;
    if (entries_[index].hash != hash) continue;
    // Other systems make names that differ in case only: each must stay reachable.
    if (Name(index) == name) return last_found_ = index;
    if (found == kNone && volume.FoldName(Name(index)) == folded) found = index;
  }
  return found;
}

}  // namespace vornalux
