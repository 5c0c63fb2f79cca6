// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/windows/system_headers.h"

namespace vornalux {

// Leaves a text that stays as it is, which would flicker.
void SetText(HWND window, const std::string& text);
std::string TextOf(HWND window);

}  // namespace vornalux
