// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace vornalux {

// What the system says that it is.
struct SystemVersion {
  std::uint32_t platform = 0;  // 0 Win32s, 1 Windows 9x, 2 the NT family
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t build = 0;
  std::string service_pack;
};

// The system as the program's start and the end of a session see it.
class System {
 public:
  virtual ~System() = default;

  // The shell's test of the user: 1 for an administrator.
  virtual std::int32_t AdministratorTest() = 0;
  // False when the system does not say; then version is unchanged.
  virtual bool Version(SystemVersion& version) = 0;
  virtual bool IsWow64Process() = 0;
  // Enables a privilege of this process by its name, such as "SeBackupPrivilege". False when it is
  // refused.
  virtual bool EnablePrivilege(const std::string& name) = 0;
  virtual void InitCommonControls(std::uint32_t classes) = 0;
  virtual void ExitWindows(std::uint32_t flags, std::uint32_t reason) = 0;
};

}  // namespace vornalux
