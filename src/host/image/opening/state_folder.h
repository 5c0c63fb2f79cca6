// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// Where the journals of block devices are kept: $VORNALUX_STATE_DIR, else /var/lib/vornalux.
std::string StateFolder();

// Makes the folder where it is missing. Returns why no journal can be kept in it, as the end of a
// sentence about it; empty when one can. The folder must outlive a power cut, and nobody but root
// and the user who runs this may write in it.
std::string PrepareStateFolder(const std::string& folder);

}  // namespace vornalux
