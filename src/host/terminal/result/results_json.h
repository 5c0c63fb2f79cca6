// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/terminal/result/results.h"

namespace vornalux {

// One of several results, without a line break behind it: {"image", "exit_code", "error",
// "result"}. What is empty of the last two is null; result is one of those below.
std::string ToJsonElement(const std::string& image, int exit_code, const std::string& error,
                          const std::string& result);

// Results for other programs: one JSON object and a line break. Bytes of names that are no valid
// UTF-8 become U+FFFD.
std::string ToJson(const AnalysisResult& result);
std::string ToJson(const PassResult& result);
std::string ToJson(const JobResult& result);
std::string ToJson(const TrimResult& result);

}  // namespace vornalux
