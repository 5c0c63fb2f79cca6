// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// What follows the program's own path on its command line, without blanks before it. program: that
// path in full. On the line it may stand in quotes, without its extension, or without quotes though
// it has blanks, as verbs of the context menu write it.
std::wstring CommandLineTail(const std::wstring& line, const std::wstring& program);

}  // namespace vornalux
