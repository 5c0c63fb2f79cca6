// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "engine/pass.h"
#include "engine/passes.h"

namespace vornalux {

inline constexpr std::size_t kPassCount = static_cast<std::size_t>(Pass::Last) + 1;

// What menus, job lines, commands and reports need to know of a pass. Whoever has something of its
// own for each pass switches over Pass without a default, so that a new one cannot be forgotten.
struct PassRow {
  Pass pass;
  const char* name;        // on buttons and in menus
  char letter;             // the job line's switch, without its slash
  const char* command;     // of the command line
  const char* purpose;     // in the command line's help
  const char* noun;        // in reports
  bool needs_class_lists;  // its analysis sorts files into classes
  bool joins_all;          // it takes every fragmented file, wherever that lies
  bool (Passes::*run)();
  bool (Passes::*thorough)();  // with a plan of the whole volume; null where there is none
};

inline constexpr std::array<PassRow, kPassCount> kPasses = {{
    {Pass::Defrag, "Defrag", 'd', "defrag", "Make fragmented files contiguous", "Defragmentation",
     false, true, &Passes::defrag, &Passes::ThoroughDefrag},
    {Pass::Optimize, "Optimize", 'o', "optimize", "Arrange files by class", "Optimization", true,
     true, &Passes::optimizequick, nullptr},
    {Pass::Compact, "Compact", 'c', "compact", "Close the gaps between files", "Compaction", true,
     false, &Passes::compactquick, &Passes::ThoroughCompact},
}};

constexpr const PassRow& RowOf(Pass pass) { return kPasses[static_cast<std::size_t>(pass)]; }

// The pass of a job line's switch, given without its slash.
constexpr std::optional<Pass> PassOfLetter(std::string_view letter) {
  for (const PassRow& row : kPasses) {
    if (letter == std::string_view(&row.letter, 1)) return row.pass;
  }
  return std::nullopt;
}

// Every pass has a row of its own, in its place.
static_assert([] {
  for (const PassRow& row : kPasses) {
    if (&RowOf(row.pass) != &row) return false;
    if (PassOfLetter({&row.letter, 1}) != row.pass) return false;
  }
  return true;
}());

}  // namespace vornalux
