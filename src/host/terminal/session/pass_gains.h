// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/mounted/read_failures.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/result/analysis_details.h"

namespace vornalux {

// What kept it from being worked out, but for time and the user.
struct GainsTrouble {
  std::vector<ReadFailure> unreadable;
  std::string refused;  // why the volume was; empty when it was not
};

// Carries out each pass that the options' volume could have, in its plain and its thorough form, as
// a dry run that nobody sees, and tells what came of it in `details`. It goes on for no longer than
// `time`, as far as that is up to it, and until `stop` says so; what has not come to its end by
// then is not worked out, nor is what comes after some trouble. files: what the analysis was about,
// spelled as the volume has them. The volume must not be open.
GainsTrouble WorkOutGains(const Options& options, const std::vector<std::string>& files,
                          std::chrono::milliseconds time, const std::function<bool()>& stop,
                          AnalysisDetails& details);

}  // namespace vornalux
