// SPDX-License-Identifier: GPL-2.0-or-later
#include "shell/context_verbs.h"

namespace vornalux {
namespace {

// No priority among its switches: it runs at the one that it is started with.
constexpr const char* kSilent = "Defrag silent (minimized, low priority then close)";

}  // namespace

// A folder's path stands in quotes, for its blanks; a drive's root has none.
const std::array<ContextVerb, 6> kContextVerbs = {{
    {"Defrag", "Directory\\shell\\Vornalux Defrag", "/d /dir \"%1\""},
    {kSilent, "Directory\\shell\\Vornalux Defrag Background", "/min /close /d /dir \"%1\""},
    {"Defrag", "Drive\\shell\\Vornalux Defrag", "/d /drv %1"},
    {kSilent, "Drive\\shell\\Vornalux Defrag Background", "/min /close /d /drv %1"},
    {"Optimize", "Drive\\shell\\Vornalux Optimize", "/o /drv %1"},
    {"Optimize then shutdown", "Drive\\shell\\Vornalux Optimize Shutdown", "/down /o /drv %1"},
}};

std::string CommandKey(const ContextVerb& verb) { return std::string(verb.key) + "\\command"; }

std::string CommandOf(const ContextVerb& verb, const std::string& folder) {
  return folder + "\\Vornalux.exe " + verb.job;
}

}  // namespace vornalux
