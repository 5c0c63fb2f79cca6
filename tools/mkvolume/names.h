// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "host/simulated/seeded_random.h"

namespace vornalux::making {

// Names as people and programs give them. number makes a name unique: two names with different
// numbers differ in every folder, whatever the case.
std::u16string PlainFileName(std::uint64_t number, SeededRandom& random);
// Long, non-ASCII, dotted, spaced; at most 255 UTF-16 units. unpaired: a lone surrogate may occur.
std::u16string OddName(std::uint64_t number, bool unpaired, SeededRandom& random);
std::u16string FolderName(std::uint64_t number, SeededRandom& random);

// ASCII text as UTF-16.
std::u16string Wide(const std::string& text);

}  // namespace vornalux::making
