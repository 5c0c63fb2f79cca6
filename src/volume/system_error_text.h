// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/platform.h"

namespace vornalux {

// The system's message for an error code, without a line break at its end. Tells the user when the
// system has none.
std::string SystemErrorText(Platform& platform, ErrorCode code);

}  // namespace vornalux
