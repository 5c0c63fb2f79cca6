// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace vornalux {

// A volume that must not or cannot be worked on. what() says which, why, and what mends it.
class VolumeRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace vornalux
