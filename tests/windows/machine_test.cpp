// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <set>

#include "host/windows/system_headers.h"
#include "host/windows/windows_machine.h"
#include "host/windows/windows_system.h"
#include "host/windows/windows_volumes.h"
#include "play/import_patch.h"

namespace vornalux {
namespace {

struct Asked {
  UINT flags = 0;
  DWORD reason = 0;
  int times = 0;
};
Asked exit_asked;

BOOL WINAPI NoExit(UINT flags, DWORD reason) {
  exit_asked = {flags, reason, exit_asked.times + 1};
  return TRUE;
}

// Success by its result, a refusal by the last error.
BOOL WINAPI Refuse(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD) {
  SetLastError(ERROR_NOT_ALL_ASSIGNED);
  return TRUE;
}

// Leaves the last error as it is.
BOOL WINAPI Grant(HANDLE, BOOL, PTOKEN_PRIVILEGES wanted, DWORD, PTOKEN_PRIVILEGES, PDWORD) {
  return wanted->PrivilegeCount == 1 && wanted->Privileges[0].Attributes == 2;
}

UINT WINAPI WindowsInTheRoot(char* folder, UINT size) {
  return lstrcpynA(folder, "C:\\", static_cast<int>(size)) != nullptr ? 3 : 0;
}

template <typename Function>
void* Address(Function* function) {
  return reinterpret_cast<void*>(function);
}

class MachineTest : public testing::Test {
 protected:
  WindowsSystem system_;
  WindowsVolumes volumes_;
  WindowsMachine machine_{system_, volumes_};
};

TEST_F(MachineTest, WindowsFolder) {
  const std::string folder = machine_.WindowsFolder();
  ASSERT_GT(folder.size(), 3u);
  EXPECT_EQ(folder.substr(1, 2), ":\\");
  EXPECT_NE(folder.back(), '\\');
  const play::ImportPatch patch("GetWindowsDirectoryA", Address(&WindowsInTheRoot));
  EXPECT_EQ(machine_.WindowsFolder(), "C:");
}

TEST_F(MachineTest, ErrorTexts) {
  for (const ErrorCode code : {error::kSuccess, error::kFileNotFound, error::kAccessDenied,
                               error::kNotReady, error::kDiskFull, error::kMoreData}) {
    const std::string text = machine_.ErrorText(code);
    EXPECT_TRUE(text.ends_with(".\r\n")) << code << ": " << text;
  }
  EXPECT_EQ(machine_.ErrorText(99999), "");
}

TEST_F(MachineTest, PriorityIsReadBack) {
  for (const std::uint32_t wanted : {priority::kIdle, priority::kAboveNormal, priority::kNormal}) {
    EXPECT_EQ(machine_.SetPriorityClass(wanted), wanted);
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), wanted);
  }
  EXPECT_EQ(machine_.SetPriorityClass(12345), priority::kNormal);
}

TEST_F(MachineTest, PowerOffIsAskedForOnce) {
  const play::ImportPatch patch("ExitWindowsEx", Address(&NoExit));
  exit_asked = {};
  machine_.PowerOff();
  EXPECT_EQ(exit_asked.flags, 12u);
  EXPECT_EQ(exit_asked.reason, 0xFFFFFFFFu);
  EXPECT_EQ(exit_asked.times, 1);
}

TEST_F(MachineTest, RandomNumbersDifferAndStayInRange) {
  std::set<double> numbers;
  for (int i = 0; i < 1000; ++i) {
    const double number = machine_.Random();
    ASSERT_GE(number, 0.0);
    ASSERT_LT(number, 1.0);
    numbers.insert(number);
  }
  EXPECT_GT(numbers.size(), 990u);
}

TEST_F(MachineTest, RightsAndVersion) {
  const std::int32_t administrator = system_.AdministratorTest();
  EXPECT_TRUE(administrator == 0 || administrator == 1);
  SystemVersion version;
  ASSERT_TRUE(system_.Version(version));
  EXPECT_EQ(version.platform, 2u);
  EXPECT_GE(version.major * 100 + version.minor, 501u);
  EXPECT_EQ(version.service_pack.find('\0'), std::string::npos);
  if (sizeof(void*) == 8) {
    EXPECT_FALSE(system_.IsWow64Process());
  }
  system_.InitCommonControls(512);
}

TEST_F(MachineTest, AnUnknownPrivilegeIsRefused) {
  EXPECT_FALSE(system_.EnablePrivilege("SeNoSuchPrivilege"));
  {
    const play::ImportPatch patch("AdjustTokenPrivileges", Address(&Refuse));
    EXPECT_FALSE(system_.EnablePrivilege("SeBackupPrivilege"));
  }
  const play::ImportPatch patch("AdjustTokenPrivileges", Address(&Grant));
  SetLastError(ERROR_NOT_ALL_ASSIGNED);  // an old failure is not this one's
  EXPECT_TRUE(system_.EnablePrivilege("SeBackupPrivilege"));
}

}  // namespace
}  // namespace vornalux
