// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/fragment_lists.h"

#include <utility>

namespace vornalux {

void FragmentLists::Clear() {
  FragNames.assign(1, "");
  FragExtents.assign(1, "");
  sizes_.assign(1, {});
}

void FragmentLists::Add(const std::string& path, std::int64_t extents, FragmentedSize size) {
  FragNames.back() = path;
  FragExtents.back() = std::to_string(extents);
  sizes_.back() = size;
  FragNames.emplace_back();
  FragExtents.emplace_back();
  sizes_.emplace_back();
}

void FragmentLists::Swap(std::int64_t a, std::int64_t b) {
  const auto i = static_cast<std::size_t>(a);
  const auto j = static_cast<std::size_t>(b);
  std::swap(FragExtents[i], FragExtents[j]);
  std::swap(FragNames[i], FragNames[j]);
  std::swap(sizes_[i], sizes_[j]);
}

void FragmentLists::Quicksort(Platform& platform, std::int64_t min, std::int64_t max) {
  const auto key = [this](std::int64_t i) -> const std::string& {
    return FragExtents[static_cast<std::size_t>(i)];
  };
  for (;;) {
    platform.desktop.DoEvents();
    if (min >= max) return;
    const auto choice = min + static_cast<std::int64_t>(static_cast<double>(max - min + 1) *
                                                        platform.machine.Random());
    const std::string pivot = key(choice);
    // Three parts, because a volume has thousands of files with the same few counts: split in two,
    // they would cost time and stack by the square.
    std::int64_t less = min;
    std::int64_t greater = max;
    for (std::int64_t i = min; i <= greater;) {
      const int order = key(i).compare(pivot);
      if (order < 0) {
        Swap(i++, less++);
      } else if (order > 0) {
        Swap(i, greater--);
      } else {
        ++i;
      }
    }
    // The shorter side by recursion, the longer one by going round again.
    if (less - min < max - greater) {
      Quicksort(platform, min, less - 1);
      min = greater + 1;
    } else {
      Quicksort(platform, greater + 1, max);
      max = less - 1;
    }
  }
}

}  // namespace vornalux
