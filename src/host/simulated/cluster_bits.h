// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/mounted/bitmap_changes.h"

namespace vornalux {

// Which clusters of a simulated volume are in use. Ranges lie inside the volume.
class ClusterBits {
 public:
  explicit ClusterBits(std::int64_t clusters);

  std::int64_t Clusters() const { return clusters_; }
  std::int64_t FreeClusters() const { return free_; }
  bool Used(std::int64_t lcn) const;
  bool RangeFree(std::int64_t lcn, std::int64_t count) const;
  void Set(std::int64_t lcn, std::int64_t count, bool used);
  // Bitmap bytes from lcn (a multiple of 8) on; clusters past the end read as 0.
  void Copy(std::int64_t lcn, std::span<std::uint8_t> out) const;
  // What of this has changed.
  BitmapChanges& Changes() { return changes_; }

 private:
  std::int64_t clusters_;
  std::int64_t free_;
  std::vector<std::uint8_t> bits_;
  BitmapChanges changes_;
};

}  // namespace vornalux
