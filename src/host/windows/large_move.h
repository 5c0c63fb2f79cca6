// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "platform/volumes.h"

namespace vornalux {

// Clusters [vcn, vcn + count) of a file, which lie at lcn.
struct FilePart {
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;
};

// Moves part.count clusters from part.vcn on to part.lcn; all or nothing.
using MoveRequest = std::function<ErrorCode(const FilePart& part)>;

// Carries a move out in requests of checkpoint.every clusters, from where they lie, in VCN order
// and without holes, to one place from target on, and calls the checkpoint between them. Nobody can
// end it in between, for the file might then be in more pieces than before. When a request is
// refused, what was moved goes back, last clusters first, as far as its old place is still free.
ErrorCode MoveInRequests(std::span<const FilePart> from, std::int64_t target,
                         const MoveCheckpoint& checkpoint, const MoveRequest& request);

}  // namespace vornalux
