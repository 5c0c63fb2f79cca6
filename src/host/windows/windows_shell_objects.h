// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "platform/shell_objects.h"

namespace vornalux {

// The shell of a Windows session, through the Windows Script Host.
class WindowsShellObjects final : public ShellObjects {
 public:
  ShellResult CreateScriptShell(std::unique_ptr<ScriptShell>& shell) override;
  std::string ExpandEnvironment(const std::string& text) override;
  ProgramFile ProgramPlace() override;
  bool FileExists(const std::string& path) override;
  ErrorCode WriteTextFile(const std::string& path, const std::string& text) override;
  ErrorCode WriteUnicodeFile(const std::string& path, const std::string& text) override;
};

}  // namespace vornalux
