// SPDX-License-Identifier: GPL-2.0-or-later
// Words shared by every question that the program asks of an operating system.
#pragma once

#include <cstdint>

namespace vornalux {

// An open volume or file. Owned through OwnedHandle; kInvalidHandle is "not open".
using Handle = std::intptr_t;
inline constexpr Handle kInvalidHandle = -1;

// 16-bit Boolean whose True has all bits set, as the program's data has it.
using Boolean = std::int16_t;
inline constexpr Boolean True = -1;
inline constexpr Boolean False = 0;
constexpr Boolean ToBoolean(bool value) { return value ? True : False; }

// Windows error codes: the result of every call that can fail.
using ErrorCode = std::uint32_t;
namespace error {
inline constexpr ErrorCode kSuccess = 0;
inline constexpr ErrorCode kInvalidFunction = 1;
inline constexpr ErrorCode kFileNotFound = 2;
inline constexpr ErrorCode kPathNotFound = 3;
inline constexpr ErrorCode kAccessDenied = 5;
inline constexpr ErrorCode kInvalidHandle = 6;
inline constexpr ErrorCode kNotEnoughMemory = 8;
inline constexpr ErrorCode kNoMoreFiles = 18;
inline constexpr ErrorCode kWriteProtect = 19;
inline constexpr ErrorCode kNotReady = 21;
inline constexpr ErrorCode kSeek = 25;
inline constexpr ErrorCode kWriteFault = 29;
inline constexpr ErrorCode kReadFault = 30;
inline constexpr ErrorCode kGenFailure = 31;
inline constexpr ErrorCode kSharingViolation = 32;
inline constexpr ErrorCode kHandleEof = 38;
inline constexpr ErrorCode kNotSupported = 50;
inline constexpr ErrorCode kInvalidParameter = 87;
inline constexpr ErrorCode kDiskFull = 112;
inline constexpr ErrorCode kInvalidName = 123;
inline constexpr ErrorCode kFileTooLarge = 223;
inline constexpr ErrorCode kMoreData = 234;
inline constexpr ErrorCode kNoMoreItems = 259;
inline constexpr ErrorCode kOperationAborted = 995;
inline constexpr ErrorCode kFileCorrupt = 1392;
}  // namespace error

// One run of a file's clusters, in VCN order. NextVcn is the first VCN after the run; Lcn is where
// the run starts, or -1 for a run without clusters of its own (a hole).
struct Extent {
  std::int64_t NextVcn = 0;
  std::int64_t Lcn = 0;

  friend bool operator==(const Extent&, const Extent&) = default;
};

// Folder entry attributes, as the file systems store them.
namespace attribute {
inline constexpr std::uint32_t kReadOnly = 0x1;
inline constexpr std::uint32_t kHidden = 0x2;
inline constexpr std::uint32_t kSystem = 0x4;
inline constexpr std::uint32_t kVolumeLabel = 0x8;
inline constexpr std::uint32_t kDirectory = 0x10;
inline constexpr std::uint32_t kArchive = 0x20;
inline constexpr std::uint32_t kSparse = 0x200;
inline constexpr std::uint32_t kReparsePoint = 0x400;
inline constexpr std::uint32_t kCompressed = 0x800;
inline constexpr std::uint32_t kEncrypted = 0x4000;
}  // namespace attribute

// A colour as 0x00BBGGRR.
using Colour = std::uint32_t;

}  // namespace vornalux
