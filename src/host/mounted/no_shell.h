// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/registry.h"
#include "platform/shell_objects.h"

namespace vornalux {

// A machine that has neither the shell's objects nor a registry.
class NoShell final : public ShellObjects, public Registry {
 public:
  ShellResult CreateScriptShell(std::unique_ptr<ScriptShell>&) override {
    return {.error = error::kNotSupported, .description = "There is no shell on this system."};
  }
  std::string ExpandEnvironment(const std::string& text) override { return text; }
  ProgramFile ProgramPlace() override { return {}; }
  bool FileExists(const std::string&) override { return false; }
  ErrorCode WriteTextFile(const std::string&, const std::string&) override {
    return error::kNotSupported;
  }
  ErrorCode WriteUnicodeFile(const std::string&, const std::string&) override {
    return error::kNotSupported;
  }

  ErrorCode CreateKey(Handle, const std::string&, std::uint32_t, Handle&) override {
    return error::kNotSupported;
  }
  ErrorCode OpenKey(Handle, const std::string&, std::uint32_t, Handle&) override {
    return error::kNotSupported;
  }
  void CloseKey(Handle) override {}
  ErrorCode SetValue(Handle, const std::string&, const std::string&) override {
    return error::kInvalidHandle;
  }
  ErrorCode EnumValue(Handle, std::uint32_t, std::string&, std::string&) override {
    return error::kInvalidHandle;
  }
  ErrorCode EnumKey(Handle, std::uint32_t, std::string&) override { return error::kInvalidHandle; }
  ErrorCode DeleteKey(Handle, const std::string&) override { return error::kInvalidHandle; }
};

}  // namespace vornalux
