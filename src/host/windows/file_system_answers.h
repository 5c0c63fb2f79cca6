// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/volumes.h"

namespace vornalux {

// Takes apart what a file system answered. The bytes come from drivers, for volumes that may be
// damaged: counts and offsets that do not fit the bytes answered make the whole answer invalid.
inline constexpr ErrorCode kInvalidAnswer = 13;  // the system's "the data is invalid"

// Bytes that an answer needs for this many bitmap bytes or extents.
std::size_t BitmapAnswerSize(std::size_t bitmap_bytes);
std::size_t ExtentsAnswerSize(std::size_t extents);

// The answer's bytes lie in out.bits and are turned into the bitmap's bytes there. more: the volume
// goes on after them.
ErrorCode TakeBitmapAnswer(bool more, BitmapChunk& out);

ErrorCode TakeExtentsAnswer(std::span<const std::uint8_t> answer, ExtentChunk& out);

ErrorCode TakeNtfsAnswer(std::span<const std::uint8_t> answer, NtfsVolumeData& out);

// A file without streams has an empty answer.
ErrorCode TakeStreamsAnswer(std::span<const std::uint8_t> answer, std::vector<std::string>& out);

}  // namespace vornalux
