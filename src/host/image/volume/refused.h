// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace vornalux {

// A volume that must not or cannot be worked on. what() says which, why, and what mends it.
class VolumeRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  // The same with the image named in it, as the user has named it.
  VolumeRefused Of(const std::string& image) const {
    const std::string why = what();
    return why.find(image) == std::string::npos ? VolumeRefused(image + ": " + why) : *this;
  }
};

}  // namespace vornalux
