// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/mounted/item_id.h"

namespace vornalux {

class MountedVolume;

// The items of one folder in the volume's order, searchable by name. Compact, since every folder of
// a volume with millions of files may be held at once.
class FolderListing {
 public:
  // go_on is asked now and then while items come; false ends the listing.
  explicit FolderListing(std::function<bool()> go_on = {}) : go_on_(std::move(go_on)) {}

  // At the end. False when no more are wanted.
  bool Add(std::string_view name, std::uint32_t attributes, ItemId id);
  // Puts the items into an order of their names, in which equal ones lie together.
  template <typename Before>
  void Sort(Before before) {
    std::sort(entries_.begin(), entries_.end(),
              [&](const Entry& a, const Entry& b) { return before(NameOf(a), NameOf(b)); });
    sorted_ = true;
  }
  // All items are there: what was only needed to take them is given back.
  void Finish();

  std::size_t Size() const { return entries_.size(); }
  std::string_view Name(std::size_t index) const { return NameOf(entries_[index]); }
  std::uint32_t Attributes(std::size_t index) const { return entries_[index].attributes; }
  ItemId Id(std::size_t index) const { return entries_[index].id; }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  // The item with exactly this name, else the first one whose name folds to the same; or kNone.
  std::size_t Find(const MountedVolume& volume, std::string_view name) const;

 private:
  struct Entry {
    ItemId id = 0;
    std::uint64_t name_at : 48 = 0;
    std::uint64_t name_size : 16 = 0;
    std::uint32_t attributes = 0;
    std::uint32_t hash = 0;  // of the folded name, once there are slots
  };

  std::string_view NameOf(const Entry& entry) const {
    return std::string_view(names_).substr(static_cast<std::size_t>(entry.name_at),
                                           entry.name_size);
  }
  void MakeSlots(const MountedVolume& volume) const;

  std::function<bool()> go_on_;
  std::string names_;
  mutable std::vector<Entry> entries_;
  // Open addressing: index into entries_ plus 1, 0 = empty. Made for the first name that is asked
  // for out of turn, which a walk never does.
  mutable std::vector<std::uint32_t> slots_;
  mutable std::size_t last_found_ = 0;
  bool sorted_ = false;
  mutable bool unique_ = false;  // no name is there twice, as the slots have shown
};

}  // namespace vornalux
