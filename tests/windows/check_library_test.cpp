// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <stdexcept>

#include "health/disk_check.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_check_library.h"
#include "host/windows/windows_volumes.h"
#include "play/import_patch.h"
#include "support/noting_sink.h"
#include "windows/fmifs_double.h"

namespace vornalux {
namespace {

// Beside this program.
UINT WINAPI FolderOfTheDouble(wchar_t* out, UINT room) {
  const DWORD length = GetModuleFileNameW(nullptr, out, room);
  const std::wstring program(out, length);
  lstrcpyW(out + program.rfind(L'\\'), L"\\double");
  return static_cast<UINT>(lstrlenW(out));
}

// While it lives, the double is the system's.
class WithDouble {
 public:
  WithDouble() {
    wchar_t path[MAX_PATH] = {};
    FolderOfTheDouble(path, MAX_PATH);
    library_ = LoadLibraryW(lstrcatW(path, L"\\fmifs.dll"));
    if (library_ == nullptr) throw std::runtime_error("the double of fmifs.dll is missing");
  }
  ~WithDouble() { FreeLibrary(library_); }
  WithDouble(const WithDouble&) = delete;
  WithDouble& operator=(const WithDouble&) = delete;

  const test::CheckLog& Log() const {
    return *Procedure<const test::CheckLog * WINAPI()>(library_, "LastCheck")();
  }

 private:
  HMODULE library_;
  play::ImportPatch folder_{"GetSystemDirectoryW", FolderOfTheDouble};
};

TEST(CheckLibrary, ComesFromTheSystemsFolderAlone) {
  wchar_t folder[MAX_PATH] = {};
  FolderOfTheDouble(folder, MAX_PATH);
  SetDllDirectoryW(folder);  // where any library is looked for by its name
  WindowsCheckLibrary library;
  EXPECT_FALSE(library.Load());
  SetDllDirectoryW(nullptr);
}

TEST(CheckLibrary, WhatItSaysArrives) {
  const WithDouble with;
  WindowsVolumes volumes;
  WindowsCheckLibrary library;
  test::NotingSink sink;
  CheckVolumeBy(library, volumes, "C:\\", {}, sink);
  EXPECT_EQ(sink.notes, GetOEMCP() == 437 ? "The volume is called Tür.\r\n 42% good " : sink.notes);
  const test::CheckLog& log = with.Log();
  EXPECT_EQ(std::wstring(log.root), L"C:\\");
  EXPECT_EQ(std::wstring(log.file_system), L"NTFS");
  EXPECT_EQ(log.correct_errors, 0);
  EXPECT_EQ(log.verbose, 0);
  EXPECT_EQ(log.only_if_dirty, 1);
  EXPECT_EQ(log.scan_drive, 0);
  EXPECT_EQ(log.calls, 4);
  EXPECT_EQ(log.last_answer, 1);
}

TEST(CheckLibrary, WhatCannotBeReadIsNotRead) {
  const WithDouble with;
  WindowsCheckLibrary library;
  ASSERT_TRUE(library.Load());
  std::vector<std::string> lines;
  int unreadable = 0;
  std::string numbers;
  library.Check("D:\\", "NASTY", {}, [&](const CheckMessage& message) {
    if (message.command != 14) {
      numbers += std::to_string(message.number);
    } else if (message.line) {
      lines.push_back(*message.line);
    } else {
      ++unreadable;
    }
    return true;
  });
  EXPECT_EQ(numbers, "0000");
  EXPECT_EQ(unreadable, 5);
  EXPECT_EQ(lines, (std::vector<std::string>{std::string(20, 'x'), std::string(255, 'x'), ""}));
}

TEST(CheckLibrary, AnExceptionWaitsForTheLibrary) {
  const WithDouble with;
  WindowsCheckLibrary library;
  ASSERT_TRUE(library.Load());
  const auto check = [&] {
    library.Check("D:\\", "NASTY", {}, [](const CheckMessage&) -> bool {
      throw std::runtime_error("from the callback");
    });
  };
  EXPECT_THROW(check(), std::runtime_error);
  EXPECT_EQ(with.Log().calls, 12) << "the library went through to its end";
  EXPECT_EQ(with.Log().last_answer, 0);
  EXPECT_THROW(check(), std::runtime_error) << "the next check is one like the first";
}

}  // namespace
}  // namespace vornalux
