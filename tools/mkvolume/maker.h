// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "check/content.h"
#include "mkvolume/recipe.h"

namespace vornalux {

// Makes the image file (replacing one that is there; sparse, so that it costs what is in use) and
// returns what it holds; the manifest's header has the recipe. Needs no rights beyond writing the
// file; runs mkntfs or mkfs.fat. Throws std::runtime_error saying what failed and the recipe.
Manifest MakeVolume(const Recipe& recipe, const std::string& image_path);

// The same from a recipe's text.
Manifest MakeVolume(const std::string& recipe, const std::string& image_path);

}  // namespace vornalux
