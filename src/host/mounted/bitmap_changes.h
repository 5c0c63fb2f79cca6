// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/volumes.h"

namespace vornalux {

// Which pieces of a volume's bitmap changed, and when, for a volume that nobody else writes to:
// what Volumes::BitmapChanges() asks for. Memory is bounded by the number of pieces.
class BitmapChanges {
 public:
  void Note(std::int64_t lcn) {
    const auto piece = static_cast<std::size_t>(lcn / kBitmapChunkClusters);
    if (piece >= last_.size()) last_.resize(piece + 1);
    // Whoever asks next is told already.
    if (last_[piece] >= asked_) return;
    last_[piece] = End();
    log_.push_back(piece);
  }

  bool Since(std::uint64_t& mark, std::vector<std::int64_t>& lcns) {
    lcns.clear();
    const bool known = mark >= begin_;
    for (std::uint64_t at = mark; known && at < End(); ++at) {
      const std::size_t piece = log_[static_cast<std::size_t>(at - begin_)];
      lcns.push_back(static_cast<std::int64_t>(piece) * kBitmapChunkClusters);
    }
    mark = asked_ = End();
    // Whoever has not asked for so long may as well look at everything.
    if (log_.size() > last_.size()) {
      begin_ = mark;
      log_.clear();
    }
    return known;
  }

 private:
  std::uint64_t End() const { return begin_ + log_.size(); }

  std::uint64_t begin_ = 1;          // the mark of the first in log_
  std::uint64_t asked_ = 1;          // the last mark that was given
  std::vector<std::size_t> log_;     // pieces, in the order of their changes
  std::vector<std::uint64_t> last_;  // of each piece the mark of its last change
};

}  // namespace vornalux
