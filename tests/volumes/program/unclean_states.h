// SPDX-License-Identifier: GPL-2.0-or-later
// Volumes as other systems leave them when they are not done with them.
#pragma once

#include <functional>
#include <vector>

#include "volumes/maker/maker_editor.h"

namespace vornalux::test {

struct UncleanState {
  const char* what;
  const char* finding;  // what a refusal says of it
  std::function<void(NtfsEditor&)> make;
};

// Of an NTFS volume with a file hiberfil.sys in the root, all zeros and not resident. Nothing but
// the state changes.
std::vector<UncleanState> UncleanStates();

// What a $LogFile begins with that Windows has used.
void WriteLog(NtfsEditor& editor, std::uint16_t major, bool finished);

}  // namespace vornalux::test
