// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vornalux::making {

// What a stream holds, without holding it: any part can be made at any time.
struct Payload {
  enum class Kind {
    Noise,    // no two blocks of 8 bytes alike anywhere on the volume
    Prose,    // compresses well in some places and not at all in others
    Literal,  // exactly these bytes
  };

  Kind kind = Kind::Noise;
  std::uint64_t key = 0;   // of seed and path
  std::uint64_t size = 0;  // bytes
  std::string literal;

  // Makes bytes [offset, offset + out.size()); past the size they are zeros.
  void Fill(std::uint64_t offset, std::span<std::uint8_t> out) const;
};

}  // namespace vornalux::making
