// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

namespace vornalux {

// What is wrong with one source file, a line each ("src/ui/x.h:3: ..."); empty when nothing is.
// path is relative to the project's folder.
std::vector<std::string> CheckSourceFile(const std::string& path, const std::string& text);

}  // namespace vornalux
