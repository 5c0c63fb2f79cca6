// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vornalux {

// A full path taken apart. The views point into the text that was split.
struct WindowsPath {
  char drive = 0;           // 'A' to 'Z'
  std::string_view folder;  // "dir\sub", empty for the root
  std::string_view name;    // last component with its stream suffix, empty for the root itself
  bool of_folder = false;   // a backslash came behind the name: only a folder is meant
};

// Takes "C:\dir\name" or "C:\dir\name\" apart, with or without the "\\?\" prefix. Nothing for
// anything else, for empty components at either end and for paths longer than Windows takes.
// Neither characters nor what lies between are looked at.
std::optional<WindowsPath> SplitPath(std::string_view path);

// The path with a backslash at its end.
std::string AddSlash(std::string path);

// 'A' to 'Z' for "\\.\C:", 0 for anything else.
char DriveOfDevice(std::string_view device_path);

// 'A' to 'Z' for "C:\", 0 for anything else.
char DriveOfRoot(std::string_view root);

// Upper-case drive letter, 0 when the character is none.
char DriveLetter(char letter);

// Could Windows have made this name? False for empty names and for characters that it reserves.
bool IsPlainName(std::string_view name);

// Whether text is ":name", ":name:type" or "::type".
bool IsStreamSuffix(std::string_view text);

}  // namespace vornalux
