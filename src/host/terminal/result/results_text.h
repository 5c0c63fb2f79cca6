// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

#include "host/terminal/display/display_text.h"
#include "host/terminal/result/results.h"

namespace vornalux {

// Results for people: a small table.
std::string ToText(const AnalysisResult& result, Charset charset);
std::string ToText(const PassResult& result, Charset charset);
std::string ToText(const JobResult& result, Charset charset);
std::string ToText(const TrimResult& result, Charset charset);

// Why a result is incomplete, for a message. There is at least one failure; the first ones are
// named.
std::string ToText(const std::vector<ReadFailure>& failures, bool all_are_listed);

}  // namespace vornalux
