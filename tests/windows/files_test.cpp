// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "host/windows/system_headers.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_text.h"
#include "play/import_patch.h"
#include "volume/extent_reader.h"

namespace vornalux {
namespace {

std::wstring last_opened;
bool search_closed = false;
DWORD last_access = 0, last_sharing = 0, last_flags = 0;

BOOL WINAPI NoteClose(HANDLE) {
  search_closed = true;
  return TRUE;
}

HANDLE WINAPI NoteOpen(const wchar_t* path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES*,
                       DWORD, DWORD flags, HANDLE) {
  last_opened = path;
  last_access = access;
  last_sharing = sharing;
  last_flags = flags;
  SetLastError(ERROR_SUCCESS);
  return INVALID_HANDLE_VALUE;
}

// Names that Wine's system cannot have among them.
TEST(UnpairedNames, ReachTheSystemAsItGaveThem) {
  const play::ImportPatch patch("CreateFileW", NoteOpen);
  WindowsFiles files;
  for (const wchar_t* name : {L"a\xD800", L"\xDC00\xD83D\xDE00", L"\xD83D"}) {
    const OpenedFile opened = files.OpenPath(LongPath("C:\\" + FromWide(name)),
                                             FileAccess::ReadAttributes, FileFlags::NoBuffering);
    EXPECT_EQ(last_opened, std::wstring(L"\\\\?\\C:\\") + name);
    EXPECT_EQ(opened.handle, kInvalidHandle);
    EXPECT_NE(opened.error, error::kSuccess) << "the system gave no reason";
  }
  EXPECT_EQ(last_access, FILE_READ_ATTRIBUTES | SYNCHRONIZE);
  EXPECT_EQ(last_sharing, 3u);
  EXPECT_EQ(last_flags, 0x20000000u);
  files.OpenPath("C:\\", FileAccess::GenericRead, FileFlags::BackupSemantics);
  EXPECT_EQ(last_access, 0x80000000u);
  EXPECT_EQ(last_flags, 0x02000000u);
}

class SystemFiles : public testing::Test {
 protected:
  // Goes with the system that the tests run on.
  void SetUp() override {
    char temporary[MAX_PATH] = {};
    ASSERT_NE(GetTempPathA(MAX_PATH, temporary), 0u);
    const char* const test = testing::UnitTest::GetInstance()->current_test_info()->name();
    folder_ = MakeFolder(FromAnsi(temporary) + "vornalux-" + test);
  }

  bool MakeFile(const std::string& path, const std::string& content) {
    const HANDLE file = CreateFileW(ToWidePath(path)->c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD done = 0;
    WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &done, nullptr);
    CloseHandle(file);
    return true;
  }
  std::string MakeFolder(const std::string& path) {
    EXPECT_TRUE(CreateDirectoryW(ToWidePath(path)->c_str(), nullptr)) << path;
    return path + "\\";
  }
  std::map<std::string, std::uint32_t> List(const std::string& folder) {
    std::map<std::string, std::uint32_t> entries;
    const std::unique_ptr<FolderSearch> search = files_.FindFirst(folder + "*");
    EXPECT_NE(search, nullptr) << folder;
    FolderEntry entry;
    while (search != nullptr && search->Next(entry)) {
      EXPECT_TRUE(entries.emplace(entry.name, entry.attributes).second) << entry.name;
    }
    return entries;
  }
  ErrorCode Try(const std::string& path, FileAccess access, FileFlags flags) {
    const OpenedFile opened = files_.OpenPath(path, access, flags);
    EXPECT_EQ(opened.handle == kInvalidHandle, opened.error != error::kSuccess);
    if (opened.handle != kInvalidHandle) files_.CloseFile(opened.handle);
    return opened.error;
  }

  WindowsFiles files_;
  std::string folder_;
};

TEST_F(SystemFiles, OddNamesAreListedOpenedAndReadAsTheyAre) {
  std::vector<std::string> odd = {
      "plain.txt", " leading", "é\u4E2D\U0001F600",  "a+b;c=[d]", "dot.",
      "blank ",    "con",      std::string(250, 'n')};
  for (const std::string& name : odd) EXPECT_TRUE(MakeFile(folder_ + name, name)) << name;
  // Not every file system takes these.
  for (const char* name : {"\xED\xA0\x80lone", "lone\xED\xB0\x80"}) {
    if (MakeFile(folder_ + name, name)) {
      odd.push_back(name);
    } else {
      std::printf("[ note     ] the system takes no unpaired surrogates in names\n");
    }
  }
  const play::ImportPatch patch("FindClose", NoteClose);
  const auto entries = List(folder_);
  EXPECT_TRUE(search_closed);
  EXPECT_EQ(entries.size(), odd.size() + 2);
  for (const char* dots : {".", ".."}) {
    ASSERT_TRUE(entries.contains(dots));
    EXPECT_TRUE(entries.at(dots) & attribute::kDirectory);
  }
  for (const std::string& name : odd) {
    ASSERT_TRUE(entries.contains(name)) << name;
    EXPECT_FALSE(entries.at(name) & attribute::kDirectory) << name;
    for (const std::string& path : {folder_ + name, LongPath(folder_ + name)}) {
      EXPECT_EQ(Try(path, FileAccess::ReadAttributes, FileFlags::NoBuffering), 0u) << path;
      EXPECT_EQ(Try(path, FileAccess::GenericRead, FileFlags::None), 0u) << path;
      std::string content;
      EXPECT_EQ(files_.ReadBytes(path, content), error::kSuccess) << path;
      EXPECT_EQ(content, name);
    }
  }
}

TEST_F(SystemFiles, DeepFoldersAndFoldersWithADotAtTheEnd) {
  std::string path = folder_;
  for (int i = 0; i < 12; ++i) path = MakeFolder(path + std::string(39, 'd') + std::to_string(i));
  ASSERT_GT(path.size(), 450u);
  ASSERT_TRUE(MakeFile(path + "deep", "x"));
  EXPECT_EQ(List(path).count("deep"), 1u);

  const std::string dotted = MakeFolder(folder_ + "same.");
  const std::string plain = MakeFolder(folder_ + "same");
  ASSERT_TRUE(MakeFile(dotted + "one", ""));
  ASSERT_TRUE(MakeFile(plain + "two", ""));
  EXPECT_EQ(List(dotted).count("one"), 1u);
  EXPECT_EQ(List(plain).count("two"), 1u);
}

TEST_F(SystemFiles, WhatCannotBeOpened) {
  const std::string sub = MakeFolder(folder_ + "sub");
  const std::string sub_path = folder_ + "sub";
  EXPECT_EQ(Try(folder_ + "none", FileAccess::GenericRead, FileFlags::None), error::kFileNotFound);
  EXPECT_EQ(Try(folder_ + "none\\x", FileAccess::GenericRead, FileFlags::None),
            error::kPathNotFound);
  EXPECT_EQ(Try(sub_path, FileAccess::GenericRead, FileFlags::NoBuffering), error::kAccessDenied);
  EXPECT_EQ(Try(sub_path, FileAccess::GenericRead, FileFlags::BackupSemantics), error::kSuccess);
  EXPECT_EQ(Try(folder_ + "a\xFFz", FileAccess::GenericRead, FileFlags::None), error::kInvalidName);
  EXPECT_EQ(Try(sub_path + std::string("\0x", 2), FileAccess::GenericRead, FileFlags::None),
            error::kInvalidName);
  EXPECT_EQ(files_.FindFirst(folder_ + "none\\*"), nullptr);
  EXPECT_EQ(files_.FindFirst(folder_ + "\xC0*"), nullptr);

  ASSERT_TRUE(MakeFile(folder_ + "held", "x"));
  const HANDLE held = CreateFileW(ToWidePath(folder_ + "held")->c_str(), GENERIC_READ, 0, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(Try(folder_ + "held", FileAccess::GenericRead, FileFlags::None),
            error::kSharingViolation);
  EXPECT_EQ(Try(folder_ + "held", FileAccess::ReadAttributes, FileFlags::None), error::kSuccess);
  CloseHandle(held);
}

TEST_F(SystemFiles, ReadBytesUpToItsLimit) {
  const std::string path = folder_ + "large";
  ASSERT_TRUE(MakeFile(path, ""));
  std::string content = "as it was";
  for (const bool above : {false, true}) {
    const HANDLE file = CreateFileW(ToWidePath(path)->c_str(), GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    SetFilePointer(file, (64 << 20) + (above ? 1 : 0), nullptr, FILE_BEGIN);
    SetEndOfFile(file);
    CloseHandle(file);
    EXPECT_EQ(files_.ReadBytes(path, content), above ? error::kNotEnoughMemory : error::kSuccess);
    EXPECT_EQ(content.size(), std::size_t{64} << 20);
  }
  EXPECT_EQ(files_.ReadBytes(folder_, content), error::kAccessDenied);
}

}  // namespace
}  // namespace vornalux
