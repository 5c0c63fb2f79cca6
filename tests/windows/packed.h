// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace vornalux::test {

using Bytes = std::vector<std::uint8_t>;

// What a driver asks or answers: 64-bit numbers, and some bytes more.
inline Bytes Packed(const std::vector<std::int64_t>& numbers, std::size_t more = 0) {
  Bytes bytes(numbers.size() * sizeof numbers[0] + more, 0xA5);
  std::memcpy(bytes.data(), numbers.data(), bytes.size() - more);
  return bytes;
}

}  // namespace vornalux::test
