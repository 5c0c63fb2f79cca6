// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>

#include "host/windows/system_headers.h"

namespace vornalux {

// The system's dialog for the name of a text file. It asks before an existing one is chosen.
std::optional<std::string> AskForTextFile(HWND owner, const std::string& title,
                                          const std::string& initial);

}  // namespace vornalux
