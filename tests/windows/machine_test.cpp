// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "host/windows/system_headers.h"
#include "host/windows/windows_machine.h"
#include "host/windows/windows_system.h"
#include "play/import_patch.h"

namespace vornalux {
namespace {

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

HANDLE WINAPI DenyMutex(SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) {
  SetLastError(ERROR_ACCESS_DENIED);
  return nullptr;
}

class MachineTest : public testing::Test {
 protected:
  WindowsSystem system_;
  WindowsMachine machine_;
};

TEST_F(MachineTest, WindowsFolder) {
  const std::string folder = machine_.WindowsFolder();
  ASSERT_GT(folder.size(), 3u);
  EXPECT_EQ(folder.substr(1, 2), ":\\");
  EXPECT_NE(folder.back(), '\\');
  const play::ImportPatch patch("GetWindowsDirectoryA", WindowsInTheRoot);
  EXPECT_EQ(machine_.WindowsFolder(), "C:");
}

TEST_F(MachineTest, WhatTheSystemDoesNotKnow) {
  EXPECT_TRUE(machine_.ErrorText(error::kDiskFull).ends_with(".\r\n"));
  EXPECT_EQ(machine_.ErrorText(99999), "");
  EXPECT_EQ(machine_.SetPriorityClass(12345), priority::kNormal);
}

TEST_F(MachineTest, AnUnknownPrivilegeIsRefused) {
  EXPECT_FALSE(system_.EnablePrivilege("SeNoSuchPrivilege"));
  {
    const play::ImportPatch patch("AdjustTokenPrivileges", Refuse);
    EXPECT_FALSE(system_.EnablePrivilege("SeBackupPrivilege"));
  }
  const play::ImportPatch patch("AdjustTokenPrivileges", Grant);
  SetLastError(ERROR_NOT_ALL_ASSIGNED);  // an old failure is not this one's
  EXPECT_TRUE(system_.EnablePrivilege("SeBackupPrivilege"));
}

// As two programs do, each with a machine of its own.
TEST_F(MachineTest, AVolumeIsOneProgramsAlone) {
  {
    WindowsMachine other;
    EXPECT_TRUE(other.TakeVolume("C:\\"));
    EXPECT_TRUE(other.TakeVolume("c:\\")) << "its own";
    EXPECT_FALSE(machine_.TakeVolume("C:\\"));
    EXPECT_TRUE(machine_.TakeVolume("Q:\\")) << "no such drive";
    EXPECT_FALSE(machine_.TakeVolume("c:\\"));
    EXPECT_FALSE(other.TakeVolume("q:\\")) << "kept when another is refused";
    EXPECT_TRUE(machine_.TakeVolume(""));
    EXPECT_TRUE(other.TakeVolume("Q:\\"));
    EXPECT_TRUE(machine_.TakeVolume("C:\\")) << "given up for another";
    EXPECT_TRUE(machine_.TakeVolume(""));
    EXPECT_TRUE(other.TakeVolume("C:\\"));
  }
  EXPECT_TRUE(machine_.TakeVolume("C:\\")) << "its program has ended";
  const play::ImportPatch patch("CreateMutexW", DenyMutex);
  EXPECT_FALSE(machine_.TakeVolume("D:\\")) << "another user's";
}

}  // namespace
}  // namespace vornalux
