// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/file_system_control.h"

#include <algorithm>
#include <limits>

#include "host/windows/system_headers.h"

namespace vornalux {
namespace {

constexpr NTSTATUS kPending = 0x103;

// Nothing of ours exceeds this; what did would be used in part.
ULONG Length(std::size_t size) {
  return static_cast<ULONG>(std::min<std::size_t>(size, std::numeric_limits<ULONG>::max()));
}

ErrorCode Result(Handle handle, NTSTATUS status, const IO_STATUS_BLOCK& block, std::size_t size,
                 std::size_t& answered) {
  if (status == kPending) {  // the answer is still on its way into the caller's memory
    WaitForSingleObject(Native(handle), INFINITE);
    status = block.Status;
  }
  const ErrorCode error = status >= 0 ? error::kSuccess : RtlNtStatusToDosError(status);
  const bool filled = error == error::kSuccess || error == error::kMoreData;
  answered = filled ? std::min<std::size_t>(block.Information, size) : 0;
  return error;
}

}  // namespace

ErrorCode FileSystemControl(Handle handle, std::uint32_t code, std::span<const std::uint8_t> in,
                            std::span<std::uint8_t> out, std::size_t& answered) {
  IO_STATUS_BLOCK block{};
  const NTSTATUS status = NtFsControlFile(Native(handle), nullptr, nullptr, nullptr, &block, code,
                                          const_cast<std::uint8_t*>(in.data()), Length(in.size()),
                                          out.data(), Length(out.size()));
  return Result(handle, status, block, out.size(), answered);
}

ErrorCode QueryStreamInformation(Handle file, std::span<std::uint8_t> out, std::size_t& answered) {
  IO_STATUS_BLOCK block{};
  const NTSTATUS status = NtQueryInformationFile(Native(file), &block, out.data(),
                                                 Length(out.size()), FileStreamInformation);
  return Result(file, status, block, out.size(), answered);
}

}  // namespace vornalux
