// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

namespace vornalux {

// Volumes are counted in 64 bits everywhere, memory is not.

// Bytes that are to be held in memory. Throws std::bad_alloc when no memory could be so large.
constexpr std::size_t InMemory(std::uint64_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max()) throw std::bad_alloc();
  return static_cast<std::size_t>(bytes);
}

// As much of what is wanted as there is room for.
constexpr std::size_t AtMost(std::size_t room, std::uint64_t wanted) {
  return wanted < room ? static_cast<std::size_t>(wanted) : room;
}

}  // namespace vornalux
