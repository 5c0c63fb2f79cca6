// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/types.h"

namespace vornalux {

// How a call of a shell object ended.
struct ShellResult {
  ErrorCode error = error::kSuccess;  // a Windows error code, or the object's own result
  std::string description = {};       // why it failed, where the object says so

  bool Failed() const { return error != error::kSuccess; }
};

// A shortcut in the making. Properties have the shell's names, such as "TargetPath".
class ShellShortcut {
 public:
  virtual ~ShellShortcut() = default;
  virtual ShellResult Put(const std::string& property, const std::string& value) = 0;
  virtual ShellResult Put(const std::string& property, std::int32_t value) = 0;
  // Writes the file, over an existing one.
  virtual ShellResult Save() = 0;
};

// The shell's object for scripts, "Wscript.Shell". Its shortcuts do not outlive it.
class ScriptShell {
 public:
  virtual ~ScriptShell() = default;

  // A folder by the shell's name for it, such as "AllUsersDesktop"; empty when the system has none.
  virtual ShellResult SpecialFolder(const std::string& name, std::string& folder) = 0;

  // path: of the file, which need not exist. shortcut is set unless this fails.
  virtual ShellResult CreateShortcut(const std::string& path,
                                     std::unique_ptr<ShellShortcut>& shortcut) = 0;
};

// The file that the program was started from: folder + "\" + name + ".exe".
struct ProgramFile {
  std::string folder;  // without a backslash at its end
  std::string name;    // without its extension
};

// What a shortcut is made of and where it lies.
class ShellObjects {
 public:
  virtual ~ShellObjects() = default;

  // shell is set unless this fails.
  virtual ShellResult CreateScriptShell(std::unique_ptr<ScriptShell>& shell) = 0;

  // The text with references such as "%SystemRoot%" replaced; unknown ones stay.
  virtual std::string ExpandEnvironment(const std::string& text) = 0;

  virtual ProgramFile ProgramPlace() = 0;

  virtual bool FileExists(const std::string& path) = 0;
  // A small text file in the encoding that the system's own have, in place of an existing one.
  virtual ErrorCode WriteTextFile(const std::string& path, const std::string& text) = 0;
  // The same with every character that there is: as UTF-8 that says so at its beginning.
  virtual ErrorCode WriteUnicodeFile(const std::string& path, const std::string& text) = 0;
};

}  // namespace vornalux
