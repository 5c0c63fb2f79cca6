// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_system.h"

#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

// The shell's test has had a name only since it was written down; its number is older.
constexpr WORD kAdministratorTestOrdinal = 680;

static_assert(sizeof(OSVERSIONINFOA) == 148);

}  // namespace

std::int32_t WindowsSystem::AdministratorTest() {
  const HMODULE shell = GetModuleHandleW(L"shell32.dll");  // imported
  const auto test = Procedure<BOOL WINAPI()>(shell, MAKEINTRESOURCEA(kAdministratorTestOrdinal));
  return test != nullptr ? test() : 0;
}

bool WindowsSystem::Version(SystemVersion& version) {
  OSVERSIONINFOA answer{};
  answer.dwOSVersionInfoSize = sizeof answer;
  if (!GetVersionExA(&answer)) return false;
  version = {.platform = answer.dwPlatformId,
             .major = answer.dwMajorVersion,
             .minor = answer.dwMinorVersion,
             .build = answer.dwBuildNumber,
             .service_pack = FromAnsi(answer.szCSDVersion)};
  return true;
}

bool WindowsSystem::IsWow64Process() {
  // Missing where there are no two word sizes.
  const auto test =
      Procedure<BOOL WINAPI(HANDLE, PBOOL)>(GetModuleHandleA("kernel32.dll"), "IsWow64Process");
  BOOL answer = FALSE;
  return test != nullptr && test(GetCurrentProcess(), &answer) && answer;
}

bool WindowsSystem::EnablePrivilege(const std::string& name) {
  HANDLE token = nullptr;
  SetLastError(ERROR_SUCCESS);
  const BOOL opened =
      OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token);
  if (!opened || GetLastError() != ERROR_SUCCESS) {
    if (opened) CloseHandle(token);
    return false;
  }
  TOKEN_PRIVILEGES wanted{};
  wanted.PrivilegeCount = 1;
  wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  bool enabled = false;
  if (LookupPrivilegeValueA(nullptr, ToAnsi(name).c_str(), &wanted.Privileges[0].Luid)) {
    // A refusal, too, returns true, and shows in the last error only.
    SetLastError(ERROR_SUCCESS);
    enabled = AdjustTokenPrivileges(token, FALSE, &wanted, sizeof wanted, nullptr, nullptr) &&
              GetLastError() == ERROR_SUCCESS;
  }
  CloseHandle(token);
  return enabled;
}

void WindowsSystem::InitCommonControls(std::uint32_t classes) {
  INITCOMMONCONTROLSEX wanted{};
  wanted.dwSize = sizeof wanted;
  wanted.dwICC = classes;
  InitCommonControlsEx(&wanted);
}

void WindowsSystem::ExitWindows(std::uint32_t flags, std::uint32_t reason) {
  ExitWindowsEx(flags, reason);
}

}  // namespace vornalux
