// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vornalux {

// A command-line tail taken apart.
struct JobTail {
  std::vector<std::string> tokens;  // split at every single blank, so two give an empty token
  std::string quoted;               // the first quoted run, as typed
};

// The first run in double quotes stays one token: it keeps its opening quote, loses its closing
// one, and its blanks become "%". Later quotes are ordinary characters.
JobTail SplitTail(std::string_view tail);

// "C:", "C:\", "C:/" or "C:\\" as a root with one backslash at its end.
std::string NormalRoot(std::string_view drive);

// A folder with backslashes between its parts, none at its ends.
std::string NormalFolder(std::string_view folder);

}  // namespace vornalux
