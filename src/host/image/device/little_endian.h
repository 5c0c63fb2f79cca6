// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace vornalux {

// Reads or writes a number of sizeof(T) bytes at an offset, which must lie inside.
template <std::unsigned_integral T>
constexpr T LoadLittle(std::span<const std::uint8_t> bytes, std::size_t offset) {
  if constexpr (std::endian::native == std::endian::little) {
    if (!std::is_constant_evaluated()) {
      T value;
      std::memcpy(&value, bytes.data() + offset, sizeof value);
      return value;
    }
  }
  std::uint64_t value = 0;
  for (std::size_t i = sizeof(T); i-- > 0;) value = value << 8 | bytes[offset + i];
  return static_cast<T>(value);
}

template <std::unsigned_integral T>
constexpr void StoreLittle(std::span<std::uint8_t> bytes, std::size_t offset, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes[offset + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
  }
}

}  // namespace vornalux
