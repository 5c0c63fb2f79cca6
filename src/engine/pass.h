// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux {

enum class Pass { Defrag, Optimize, Compact, Last = Compact };

}  // namespace vornalux
