// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <string>

namespace vornalux {

// An entry in the context menu of drives or folders, kept below kClassesRoot.
struct ContextVerb {
  const char* caption;
  const char* key;  // the verb's key; its subkey "command" holds what is started
  const char* job;  // the job line, with "%1" for what was clicked
};

// In the order of their check boxes: two of folders, four of drives.
extern const std::array<ContextVerb, 6> kContextVerbs;

// Where the verb's command stands, as the default value.
std::string CommandKey(const ContextVerb& verb);
// What the verb starts. folder: of the program. Its path stands without quotes, which start-up and
// the system's own search cope with.
std::string CommandOf(const ContextVerb& verb, const std::string& folder);

}  // namespace vornalux
