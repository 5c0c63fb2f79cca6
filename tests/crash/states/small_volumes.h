// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <vector>

#include "support/devices.h"

namespace vornalux::test {

// A piece of a file: clusters from first on, the file's next after those before it in the list.
struct SmallPiece {
  std::uint8_t file = 0, first = 0, clusters = 0;
};
using SmallLayout = std::vector<SmallPiece>;  // by file, then in the order of the file

// All volumes of so many clusters with up to three files in up to four fragments together.
std::vector<SmallLayout> AllSmallLayouts(int clusters);

// A FAT12 volume with such files.
Bytes SmallFat12(const SmallLayout& layout, int clusters);

}  // namespace vornalux::test
