// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "forms/controls.h"

namespace vornalux::testing {

// Something that can happen: the user does it, a timer, or the world around.
struct Deed {
  std::string name;        // as steps are printed and read
  int weight = 1;          // how often it is chosen, next to the others
  Form* window = nullptr;  // that has to be in front; null: comes whatever is in front
  std::function<void()> act = {};
  std::function<bool()> possible = [] { return true; };
};
using Deeds = std::vector<Deed>;

// A deed of a sequence, and when it happens.
struct Step {
  std::string deed;  // "start" is followed by the job line
  int wait = 0;      // 0: when nothing runs; else inside what does, after so many events
  bool yes = false;  // how boxes that it brings up are answered
};

// An invariant that does not hold.
struct Fault {
  std::string rule;  // the same for faults of one kind
  std::string what;
};

// The letter, in upper case, that a path, a volume or a drive begins with; '\0' without.
inline char LetterOf(std::string_view text) {
  if (text.size() < 2 || text[1] != ':') return '\0';
  return text[0] >= 'a' ? static_cast<char>(text[0] - 'a' + 'A') : text[0];
}

// The same of the first volume that a text names: "Volume C:\\", "/drv C: /d".
inline char LetterIn(std::string_view text) {
  const std::size_t colon = std::min(text.find(':'), text.size());
  return colon == 0 ? '\0' : LetterOf(text.substr(colon - 1));
}

}  // namespace vornalux::testing
