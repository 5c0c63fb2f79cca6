// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/system.h"

namespace vornalux {

// The system that the program runs on, and this process's rights.
class WindowsSystem final : public System {
 public:
  // 0 where the shell has no such test.
  std::int32_t AdministratorTest() override;
  bool Version(SystemVersion& version) override;
  bool IsWow64Process() override;
  bool EnablePrivilege(const std::string& name) override;
  void InitCommonControls(std::uint32_t classes) override;
  void ExitWindows(std::uint32_t flags, std::uint32_t reason) override;
};

}  // namespace vornalux
