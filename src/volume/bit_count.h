// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>

namespace vornalux {

// The number of set bits, at about the speed at which memory can be read.
std::uint64_t CountSetBits(std::span<const std::uint8_t> bytes);

}  // namespace vornalux
