// SPDX-License-Identifier: GPL-2.0-or-later
// The calls that go to a file system, with a file system that answers what it is told to.
#include <gtest/gtest.h>

#include "host/windows/file_system_answers.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_volumes.h"
#include "play/import_patch.h"
#include "windows/packed.h"

namespace vornalux {
namespace {

using test::Bytes;
using test::Packed;

constexpr auto kBufferOverflow = static_cast<NTSTATUS>(0x80000005);
constexpr auto kEndOfFile = static_cast<NTSTATUS>(0xC0000011);
constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr auto kDiskFull = static_cast<NTSTATUS>(0xC000007F);
constexpr auto kInvalidDevice = static_cast<NTSTATUS>(0xC0000010);
constexpr auto kTooSmall = static_cast<NTSTATUS>(0xC0000004);

constexpr Handle kVolume = 0x1234;
constexpr Handle kFile = 0x5678;

struct FileSystem {
  NTSTATUS status = 0;
  Bytes answer;
  ULONG_PTR information = 0;  // what it claims to have written
  HANDLE handle = nullptr;
  ULONG code = 0;
  Bytes asked;
  ULONG room = 0;
  int calls = 0;
  ULONG enough = 0;  // for streams
};
FileSystem file_system;

void Answer(FileSystem& state, IO_STATUS_BLOCK* block, void* out, ULONG size) {
  state.room = size;
  ++state.calls;
  if (out != nullptr)
    std::memcpy(out, state.answer.data(), std::min<std::size_t>(size, state.answer.size()));
  block->Information = state.information;
}

NTSTATUS NTAPI Control(HANDLE handle, HANDLE, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK* block,
                       ULONG code, void* in, ULONG in_size, void* out, ULONG out_size) {
  file_system.handle = handle;
  file_system.code = code;
  const auto* bytes = static_cast<const std::uint8_t*>(in);
  file_system.asked.assign(bytes, bytes + in_size);
  Answer(file_system, block, out, out_size);
  return file_system.status;
}

NTSTATUS NTAPI Query(HANDLE, IO_STATUS_BLOCK* block, void* out, ULONG size,
                     FILE_INFORMATION_CLASS) {
  Answer(file_system, block, out, size);
  return size < file_system.enough ? kBufferOverflow : file_system.status;
}

class FileSystemCalls : public testing::Test {
 protected:
  FileSystemCalls() { file_system = {}; }

  void Say(NTSTATUS status, Bytes answer) {
    file_system.status = status;
    file_system.information = answer.size();
    file_system.answer = std::move(answer);
  }

  play::ImportPatch control_{"NtFsControlFile", Control};
  play::ImportPatch query_{"NtQueryInformationFile", Query};
  WindowsVolumes volumes_;
  WindowsFiles files_;
};

TEST_F(FileSystemCalls, AMoveIsOneRecord) {
  struct Case {
    NTSTATUS status;
    ErrorCode error;
  };
  for (const Case c : {Case{0, error::kSuccess},
                       {kAccessDenied, error::kAccessDenied},
                       {kDiskFull, error::kDiskFull},
                       {kInvalidDevice, error::kInvalidFunction}}) {
    Say(c.status, {});
    EXPECT_EQ(volumes_.MoveClusters(kVolume, kFile, 0x1122334455LL, 0x66778899AALL, 0xBBCCDDEE),
              c.error);
  }
  EXPECT_EQ(file_system.handle, Native(kVolume));
  EXPECT_EQ(file_system.code, 0x90074u);
  EXPECT_EQ(file_system.asked, Packed({kFile, 0x1122334455, 0x66778899AA, 0xBBCCDDEE}));
}

TEST_F(FileSystemCalls, ABitmapThatLiesIsRefused) {
  BitmapChunk chunk;
  Say(0, Packed({0, 1000}, 10));
  EXPECT_EQ(volumes_.VolumeBitmap(kVolume, 0, 10, chunk), kInvalidAnswer);
  EXPECT_TRUE(chunk.bits.empty());

  // More bytes than there was room for: what is there counts.
  Say(kBufferOverflow, Packed({0, 1000}, 10));
  file_system.information = 0x7FFFFFFF;
  EXPECT_EQ(volumes_.VolumeBitmap(kVolume, 0, 10, chunk), error::kMoreData);
  EXPECT_EQ(chunk.bits.size(), 10u);

  // A failure that claims to have written something.
  Say(kAccessDenied, Packed({0, 80}, 10));
  EXPECT_EQ(volumes_.VolumeBitmap(kVolume, 0, 10, chunk), error::kAccessDenied);
  EXPECT_TRUE(chunk.bits.empty());
}

TEST_F(FileSystemCalls, AnswersThatAreShort) {
  Say(0, Bytes(95, 0x77));
  NtfsVolumeData data;
  EXPECT_EQ(volumes_.NtfsData(kVolume, data), kInvalidAnswer);
  Say(kInvalidDevice, {});
  EXPECT_EQ(volumes_.NtfsData(kVolume, data), error::kInvalidFunction);

  Say(kBufferOverflow, Packed({2, 16, 20, 500, 32, -1}));
  ExtentChunk chunk;
  EXPECT_EQ(files_.RetrievalPointers(kFile, 17, 2, chunk), error::kMoreData);
  // A count for more than was answered, though the buffer still holds the old answer.
  file_system.information = 32;
  EXPECT_EQ(files_.RetrievalPointers(kFile, 17, 2, chunk), kInvalidAnswer);
  Say(kEndOfFile, {});
  EXPECT_EQ(files_.RetrievalPointers(kFile, 32, 2, chunk), error::kHandleEof);
}

TEST_F(FileSystemCalls, ManyStreamsAreAskedForWithMoreRoomUpToABound) {
  std::vector<std::string> names;

  // One entry: 14 bytes of name, "::$DATA".
  Say(0, Packed({std::int64_t{14} << 32, 0, 0, 0x0024003A003A + (std::int64_t{'D'} << 48),
                 0x004100540041}));
  file_system.enough = 100000;
  EXPECT_EQ(files_.StreamNames(kFile, names), error::kSuccess);
  EXPECT_EQ(names, std::vector<std::string>{"::$DATA"});
  EXPECT_EQ(file_system.room, 131072u);

  file_system.calls = 0;
  file_system.enough = 0xFFFFFFFF;
  EXPECT_EQ(files_.StreamNames(kFile, names), error::kMoreData);
  EXPECT_LT(file_system.calls, 20);
  EXPECT_LE(file_system.room, 16u << 20);
  EXPECT_TRUE(names.empty());

  Say(kTooSmall, {});
  file_system.enough = 0;
  EXPECT_NE(files_.StreamNames(kFile, names), error::kSuccess);
}

}  // namespace
}  // namespace vornalux
