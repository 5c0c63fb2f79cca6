// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vornalux {

// What stands in a list of paths: one a line, or ended by NUL each where there is one. Empty lines,
// a carriage return at a line's end and a byte order mark are left out.
std::vector<std::string> SplitPathList(std::string_view list);

// "dir/a.txt", "\dir\a.txt" or "C:\dir\a.txt" as the path "C:\dir\a.txt" of the drive's file.
// Throws std::invalid_argument, which says why, for what names no file of this drive.
std::string PathOnDrive(std::string_view text, char letter);

// The paths with those that stand in the input in the place of "-". Throws std::invalid_argument
// when the input cannot be read to its end.
std::vector<std::string> WithListFrom(std::istream& input, const std::vector<std::string>& paths);

}  // namespace vornalux
