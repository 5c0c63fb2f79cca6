// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/shell_objects.h"

namespace vornalux {

// What a shortcut starts and how. References to the environment are expanded, except in the
// description; what is empty is left to the shell.
struct ShortcutContent {
  std::string target;
  std::string arguments = {};
  std::string description = {};
  std::string working_directory = {};
  std::string icon_location = {};  // "C:\file.exe,0"
  std::int32_t window_style = 1;   // a normal window
};

// Writes shortcut files through the shell's own object, which lives as long as this. Where there
// is no such object, every method that needs it fails.
class cShortcut {
 public:
  explicit cShortcut(ShellObjects& objects);

  // "name.lnk" in a special folder, in place of an existing one.
  ShellResult CreateShortcut(const std::string& name, const ShortcutContent& content,
                             const std::string& folder_name);
  // The same in the folder with this path.
  ShellResult CreateShortcutAt(const std::string& name, const ShortcutContent& content,
                               const std::string& folder);
  // On the user's desktop, not on that of all users.
  bool LinkExists(const std::string& name);

  // "name.url" on the user's desktop. kind: "file" for a path, anything else for a web address.
  ShellResult CreateInternetShortcut(const std::string& name, const std::string& address,
                                     const std::string& kind);
  ShellResult CreateInternetShortcutAt(const std::string& name, const std::string& address,
                                       const std::string& kind, const std::string& folder);
  bool URLExists(const std::string& name);

 private:
  // The special folder that a name stands for.
  ShellResult Find(const std::string& folder_name, std::string& folder);

  ShellObjects& objects_;
  std::unique_ptr<ScriptShell> shell_;
  ShellResult creation_;
};

// The text with references to the environment replaced, up to its first NUL.
std::string ExpandEnvStrings(ShellObjects& objects, const std::string& text);

}  // namespace vornalux
