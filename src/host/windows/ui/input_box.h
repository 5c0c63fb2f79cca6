// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>

#include "host/windows/system_headers.h"

namespace vornalux {

// Asks for a line of text in a window of its own, over owner; null for none. Nothing when the user
// cancels.
std::optional<std::string> AskForText(HWND owner, const std::string& prompt,
                                      const std::string& title, const std::string& initial);

}  // namespace vornalux
