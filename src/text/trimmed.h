// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <string>

namespace vornalux {

// The text without blanks at its ends.
inline std::string Trimmed(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text.substr(std::min(text.size(), text.find_first_not_of(' ')));
}

}  // namespace vornalux
