// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/shell_objects.h"

namespace vornalux {

// A shell that knows the folders it was given, keeps its files in memory, and fails where it is
// told to.
class ScriptedShell final : public ShellObjects {
 public:
  // By the shell's names, in any case. Others are empty, as the system has them.
  std::map<std::string, std::string> folders;
  std::map<std::string, std::string> environment;  // "%NAME%" and what it stands for
  ProgramFile program = {.folder = "C:\\Program Files\\Vornalux", .name = "vornalux"};

  // Files that exist: what was written to them, of shortcuts one "Property=value" a line.
  std::map<std::string, std::string> files;

  // The step that fails: "create", "folder <name>", "shortcut", "put <property>", "save", "write".
  std::string fails_at;
  ShellResult failure = {.error = 0x80070005, .description = "Access is denied."};

  // Shell objects that are alive.
  int shells = 0;

  ShellResult CreateScriptShell(std::unique_ptr<ScriptShell>& shell) override;
  std::string ExpandEnvironment(const std::string& text) override;
  ProgramFile ProgramPlace() override { return program; }
  bool FileExists(const std::string& path) override { return files.contains(path); }
  ErrorCode WriteTextFile(const std::string& path, const std::string& text) override;
  ErrorCode WriteUnicodeFile(const std::string& path, const std::string& text) override {
    return WriteTextFile(path, text);
  }

  // What becomes of a step.
  ShellResult Step(const std::string& step) const {
    return step == fails_at ? failure : ShellResult{};
  }
};

}  // namespace vornalux
