// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <span>
#include <string>

#include "host/image/opening/volume_list.h"
#include "host/terminal/display/display_text.h"

namespace vornalux {

// Volumes for people, a line each. all: those that cannot be worked on as well; else they are
// counted.
std::string ToText(std::span<const ListedVolume> volumes, bool all, Charset charset);

// The same as one JSON object and a line break.
std::string ToJson(std::span<const ListedVolume> volumes, bool all);

}  // namespace vornalux
