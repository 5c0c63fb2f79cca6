// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <system_error>

#include "platform/types.h"

namespace vornalux {

// The Windows error code nearest to a device error.
ErrorCode FromDevice(std::error_code error);

}  // namespace vornalux
