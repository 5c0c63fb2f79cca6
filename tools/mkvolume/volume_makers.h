// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "check/content.h"
#include "mkvolume/recipe.h"

namespace vornalux::making {

// The share of clusters that ordinary files grow to at most when no fill is asked for.
inline constexpr double kRoomyFill = 0.6;

// Each makes a volume that fills the image file and returns what it holds.
Manifest MakeFat(const Recipe& recipe, const std::string& image_path);
Manifest MakeNtfs(const Recipe& recipe, const std::string& image_path);

}  // namespace vornalux::making
