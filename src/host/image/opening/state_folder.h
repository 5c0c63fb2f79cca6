// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// Where the journals of block devices are kept: $VORNALUX_STATE_DIR, else /var/lib/vornalux.
std::string StateFolder();

// Makes the folder where it is missing. Why no journal can be kept in it, as the end of a sentence
// about it; empty when one can: it must outlive a power cut, and nobody but the user who runs this,
// or root, may write in it.
std::string PrepareStateFolder(const std::string& folder);

}  // namespace vornalux
