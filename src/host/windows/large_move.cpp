// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/large_move.h"

#include <algorithm>

namespace vornalux {
namespace {

// From the end, so that a file that was in one piece is in two, should it get stuck.
void PutBack(std::span<const FilePart> from, std::int64_t moved, const MoveCheckpoint& checkpoint,
             const MoveRequest& request) {
  const std::int64_t first = from.front().vcn;
  for (std::size_t i = from.size(); i-- > 0;) {
    const FilePart& part = from[i];
    while (first + moved > part.vcn) {
      const std::int64_t count = std::min(checkpoint.every, first + moved - part.vcn);
      const std::int64_t vcn = first + moved - count;
      if (request({vcn, part.lcn + (vcn - part.vcn), count}) != error::kSuccess) return;
      moved -= count;
      checkpoint.reached(moved);
    }
  }
}

}  // namespace

ErrorCode MoveInRequests(std::span<const FilePart> from, std::int64_t target,
                         const MoveCheckpoint& checkpoint, const MoveRequest& request) {
  const std::int64_t first = from.front().vcn;
  const std::int64_t total = from.back().vcn + from.back().count - first;
  for (std::int64_t moved = 0; moved < total;) {
    if (moved > 0) checkpoint.reached(moved);
    const std::int64_t count = std::min(checkpoint.every, total - moved);
    const ErrorCode result = request({first + moved, target + moved, count});
    if (result != error::kSuccess) {
      PutBack(from, moved, checkpoint, request);
      return result;
    }
    moved += count;
  }
  return error::kSuccess;
}

}  // namespace vornalux
