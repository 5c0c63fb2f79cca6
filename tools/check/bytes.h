// SPDX-License-Identifier: GPL-2.0-or-later
// Little-endian numbers and UTF-16 names in untrusted bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vornalux::checking {

using Bytes = std::span<const std::uint8_t>;

// The number of so many bytes at offset; 0 where the bytes end before it does.
constexpr std::uint64_t LoadNumber(Bytes bytes, std::size_t offset, std::size_t width) {
  if (offset > bytes.size() || bytes.size() - offset < width) return 0;
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[offset + i];
  return value;
}
constexpr std::uint8_t Load8(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint8_t>(LoadNumber(bytes, offset, 1));
}
constexpr std::uint16_t Load16(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(LoadNumber(bytes, offset, 2));
}
constexpr std::uint32_t Load32(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(LoadNumber(bytes, offset, 4));
}
constexpr std::uint64_t Load64(Bytes bytes, std::size_t offset) {
  return LoadNumber(bytes, offset, 8);
}

// The part [offset, offset + count), cut at the end of the bytes.
constexpr Bytes Part(Bytes bytes, std::size_t offset, std::size_t count) {
  if (offset > bytes.size()) return {};
  return bytes.subspan(offset, count < bytes.size() - offset ? count : bytes.size() - offset);
}

// Does [offset, offset + count) lie inside so many bytes?
constexpr bool Inside(std::uint64_t offset, std::uint64_t count, std::uint64_t size) {
  return offset <= size && count <= size - offset;
}

constexpr bool IsPowerOfTwo(std::uint64_t value) {
  return value != 0 && (value & (value - 1)) == 0;
}

// UTF-16 from bytes; an odd last byte is left out.
std::u16string LoadUtf16(Bytes bytes);

// UTF-8; unpaired surrogates are kept as three bytes (WTF-8).
std::string ToUtf8(const std::u16string& text);

}  // namespace vornalux::checking
