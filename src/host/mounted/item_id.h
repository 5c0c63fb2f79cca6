// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

namespace vornalux {

// Names a file or folder within its volume for as long as the volume is open.
using ItemId = std::uint64_t;

}  // namespace vornalux
