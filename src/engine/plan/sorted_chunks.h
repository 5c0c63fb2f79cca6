// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

namespace vornalux::plan {

// A sorted set in chunks of neighbours: little more memory than its keys, and changes cost what one
// chunk costs.
template <typename Key>
class SortedChunks {
 public:
  // The place of a key, until the next change.
  struct Place {
    std::size_t chunk = 0;
    std::size_t slot = 0;
    friend bool operator==(const Place&, const Place&) = default;
  };

  void Assign(const std::vector<Key>& sorted) {
    chunks_.clear();
    firsts_.clear();
    for (const Key& key : sorted) Append(key);
  }
  // The key is above all others.
  void Append(const Key& key) {
    if (chunks_.empty() || chunks_.back().size() >= kFill) {
      chunks_.emplace_back().reserve(kFill);
      firsts_.push_back(key);
    }
    chunks_.back().push_back(key);
  }

  void Insert(const Key& key) { InsertAt(LowerBound(key), key); }
  // Where LowerBound found its place.
  void InsertAt(const Place& place, const Key& key) {
    if (place == End()) return Append(key);
    std::vector<Key>& keys = chunks_[place.chunk];
    if (keys.size() == keys.capacity()) keys.reserve(keys.size() + kSpare);
    keys.insert(keys.begin() + static_cast<std::ptrdiff_t>(place.slot), key);
    firsts_[place.chunk] = keys.front();
    if (keys.size() > 2 * kFill) Halve(place.chunk);
  }

  // The key must be there.
  void Erase(const Key& key) {
    const std::size_t chunk = ChunkOf(key);
    std::vector<Key>& keys = chunks_[chunk];
    keys.erase(std::lower_bound(keys.begin(), keys.end(), key));
    if (keys.empty()) {
      chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(chunk));
      firsts_.erase(firsts_.begin() + static_cast<std::ptrdiff_t>(chunk));
    } else {
      firsts_[chunk] = keys.front();
      if (keys.capacity() - keys.size() > 2 * kSpare) keys.shrink_to_fit();
    }
  }

  Place Begin() const { return {}; }
  Place End() const { return {chunks_.size(), 0}; }
  // Of the first key that is not below this one.
  Place LowerBound(const Key& key) const {
    if (chunks_.empty()) return End();
    const std::size_t chunk = ChunkOf(key);
    const std::vector<Key>& keys = chunks_[chunk];
    const auto found = std::lower_bound(keys.begin(), keys.end(), key);
    if (found == keys.end()) return {chunk + 1, 0};
    return {chunk, static_cast<std::size_t>(found - keys.begin())};
  }
  const Key& At(const Place& place) const { return chunks_[place.chunk][place.slot]; }
  Place Next(Place place) const {
    if (++place.slot == chunks_[place.chunk].size()) place = {place.chunk + 1, 0};
    return place;
  }
  // Not of Begin().
  Place Previous(Place place) const {
    if (place.slot == 0) return {place.chunk - 1, chunks_[place.chunk - 1].size() - 1};
    return {place.chunk, place.slot - 1};
  }

 private:
  static constexpr std::size_t kFill = 256;
  static constexpr std::size_t kSpare = 32;  // in a chunk: more would be memory for nothing

  // The last chunk that does not begin above the key.
  std::size_t ChunkOf(const Key& key) const {
    const auto above = std::upper_bound(firsts_.begin(), firsts_.end(), key);
    return above == firsts_.begin() ? 0 : static_cast<std::size_t>(above - firsts_.begin()) - 1;
  }

  void Halve(std::size_t chunk) {
    std::vector<Key>& full = chunks_[chunk];
    const auto middle = full.begin() + static_cast<std::ptrdiff_t>(kFill);
    std::vector<Key> upper(middle, full.end());
    full.erase(middle, full.end());
    full.shrink_to_fit();
    const auto next = static_cast<std::ptrdiff_t>(chunk) + 1;
    firsts_.insert(firsts_.begin() + next, upper.front());
    chunks_.insert(chunks_.begin() + next, std::move(upper));
  }

  std::vector<std::vector<Key>> chunks_;  // none is empty
  std::vector<Key> firsts_;  // of each chunk: close together, as each search needs them
};

}  // namespace vornalux::plan
