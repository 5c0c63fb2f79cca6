// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/file_system_answers.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

// The records are the same for both word sizes; only the compiler could get them wrong.
constexpr std::size_t kBitmapHeader = 16;
static_assert(offsetof(VOLUME_BITMAP_BUFFER, StartingLcn) == 0);
static_assert(offsetof(VOLUME_BITMAP_BUFFER, BitmapSize) == 8);
static_assert(offsetof(VOLUME_BITMAP_BUFFER, Buffer) == kBitmapHeader);

constexpr std::size_t kExtentsHeader = 16;
constexpr std::size_t kExtentSize = 16;
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, ExtentCount) == 0);
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn) == 8);
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, Extents) == kExtentsHeader);
static_assert(sizeof(RETRIEVAL_POINTERS_BUFFER) == kExtentsHeader + kExtentSize);

static_assert(sizeof(NTFS_VOLUME_DATA_BUFFER) == 96);
static_assert(offsetof(NTFS_VOLUME_DATA_BUFFER, MftZoneStart) == 80);
static_assert(offsetof(NTFS_VOLUME_DATA_BUFFER, MftZoneEnd) == 88);

constexpr std::size_t kStreamHeader = offsetof(FILE_STREAM_INFORMATION, StreamName);
static_assert(offsetof(FILE_STREAM_INFORMATION, NextEntryOffset) == 0);
static_assert(offsetof(FILE_STREAM_INFORMATION, StreamNameLength) == 4);
static_assert(kStreamHeader == 24);

// A number in the answer, which says nothing about alignment.
template <typename Number>
Number At(std::span<const std::uint8_t> answer, std::size_t offset) {
  Number number;
  std::memcpy(&number, answer.data() + offset, sizeof number);
  return number;
}

}  // namespace

std::size_t BitmapAnswerSize(std::size_t bitmap_bytes) {
  constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max() - kBitmapHeader;
  return kBitmapHeader + std::min(bitmap_bytes, kMost);
}

std::size_t ExtentsAnswerSize(std::size_t extents) {
  constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max() / kExtentSize - 1;
  return kExtentsHeader + kExtentSize * std::min(extents, kMost);
}

ErrorCode TakeBitmapAnswer(bool more, BitmapChunk& out) {
  if (out.bits.size() < kBitmapHeader) return kInvalidAnswer;
  const auto starting_lcn = At<std::int64_t>(out.bits, 0);
  const auto bitmap_size = At<std::int64_t>(out.bits, 8);
  const std::uint64_t bytes = out.bits.size() - kBitmapHeader;
  if (starting_lcn < 0 || bitmap_size < 0) return kInvalidAnswer;
  const std::uint64_t whole = static_cast<std::uint64_t>(bitmap_size) / 8 + (bitmap_size % 8 != 0);
  if (more ? bytes > whole : bytes < whole) return kInvalidAnswer;
  out.starting_lcn = starting_lcn;
  out.bitmap_size = bitmap_size;
  out.bits.erase(out.bits.begin(), out.bits.begin() + kBitmapHeader);
  return error::kSuccess;
}

ErrorCode TakeExtentsAnswer(std::span<const std::uint8_t> answer, ExtentChunk& out) {
  if (answer.size() < kExtentsHeader) return kInvalidAnswer;
  const auto count = At<std::uint32_t>(answer, 0);
  if (count > (answer.size() - kExtentsHeader) / kExtentSize) return kInvalidAnswer;
  out.starting_vcn = At<std::int64_t>(answer, 8);
  out.extents.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = kExtentsHeader + kExtentSize * i;
    out.extents[i] = {.NextVcn = At<std::int64_t>(answer, at),
                      .Lcn = At<std::int64_t>(answer, at + 8)};
  }
  return error::kSuccess;
}

ErrorCode TakeNtfsAnswer(std::span<const std::uint8_t> answer, NtfsVolumeData& out) {
  if (answer.size() < sizeof(NTFS_VOLUME_DATA_BUFFER)) return kInvalidAnswer;
  out.mft_zone_start = At<std::int64_t>(answer, offsetof(NTFS_VOLUME_DATA_BUFFER, MftZoneStart));
  out.mft_zone_end = At<std::int64_t>(answer, offsetof(NTFS_VOLUME_DATA_BUFFER, MftZoneEnd));
  return error::kSuccess;
}

ErrorCode TakeStreamsAnswer(std::span<const std::uint8_t> answer, std::vector<std::string>& out) {
  out.clear();
  std::vector<std::string> names;
  std::wstring name;
  while (!answer.empty()) {
    if (answer.size() < kStreamHeader) return kInvalidAnswer;
    const auto next = At<std::uint32_t>(answer, 0);
    const auto bytes = At<std::uint32_t>(answer, 4);
    const std::size_t entry = next == 0 ? answer.size() : next;
    // Each entry begins after the one before it, name included: the chain cannot turn back.
    if (entry < kStreamHeader || entry > answer.size() || bytes > entry - kStreamHeader ||
        bytes % sizeof(wchar_t) != 0) {
      return kInvalidAnswer;
    }
    name.resize(bytes / sizeof(wchar_t));
    std::memcpy(name.data(), answer.data() + kStreamHeader, bytes);
    names.push_back(FromWide(name));
    answer = answer.subspan(entry);
    // An entry that announces another one and then is the last.
    if (next != 0 && answer.empty()) return kInvalidAnswer;
  }
  out = std::move(names);
  return error::kSuccess;
}

}  // namespace vornalux
