// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace vornalux {

struct FragmentedSize {
  std::int64_t fragments = 0;
  std::int64_t clusters = 0;
};

// The fragmented files: full paths and, at the same index, extent counts as decimal text. Always
// one empty element more than files.
struct FragmentLists {
  std::vector<std::string> FragNames{""};
  std::vector<std::string> FragExtents{""};

  void Clear();
  void Add(const std::string& path, std::int64_t extents, FragmentedSize size = {});
  // Of the file at this index, as the analysis found it.
  FragmentedSize SizeAt(std::size_t index) const {
    return index < sizes_.size() ? sizes_[index] : FragmentedSize();
  }

  // Sorts both lists by FragExtents from index min to max, as text: "10" before "2" before "9".
  // Passes take the files in this order.
  void Quicksort(Platform& platform, std::int64_t min, std::int64_t max);

 private:
  void Swap(std::int64_t a, std::int64_t b);

  std::vector<FragmentedSize> sizes_{{}};
};

}  // namespace vornalux
