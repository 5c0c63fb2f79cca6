// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/types.h"

namespace vornalux {

// The English system text for one of our error codes, ending in CR LF; empty for other codes.
std::string EnglishErrorText(ErrorCode code);

}  // namespace vornalux
