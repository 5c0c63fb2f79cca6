// SPDX-License-Identifier: GPL-2.0-or-later
// CRC-32, by carry-less multiplication where the processor has it: every byte of file data that is
// moved goes through here, and zlib's tables would take longer than copying it.
#include <zlib.h>

#include <cstring>

#include "host/image/journal/journal_format.h"

namespace vornalux::journal_format {
namespace {

#if defined(__x86_64__)

using Lanes = long long __attribute__((vector_size(16)));

constexpr std::size_t kLane = sizeof(Lanes);
constexpr std::size_t kStride = 4 * kLane;

// Powers of x modulo the polynomial, bits reversed: what moves a lane on by 64 bytes, by 16, and by
// 8; then the polynomial with its inverse for the last step.
constexpr Lanes kBy64 = {0x154442bd4, 0x1c6e41596};
constexpr Lanes kBy16 = {0x1751997d0, 0x0ccaa009e};
constexpr Lanes kBy8 = {0x163cd6124, 0};
constexpr Lanes kPolynomial = {0x1db710641, 0x1f7011641};
constexpr Lanes kLow32 = {0xFFFFFFFF, 0xFFFFFFFF};

Lanes Load(const std::uint8_t* bytes) {
  Lanes lanes;
  std::memcpy(&lanes, bytes, sizeof lanes);
  return lanes;
}

__attribute__((target("pclmul"))) inline Lanes Fold(Lanes lanes, Lanes by, Lanes next) {
  return __builtin_ia32_pclmulqdq128(lanes, by, 0x00) ^
         __builtin_ia32_pclmulqdq128(lanes, by, 0x11) ^ next;
}

// length is a multiple of 16, at least 64. Takes and gives the checksum with its bits inverted.
__attribute__((target("pclmul"))) std::uint32_t FoldAll(const std::uint8_t* bytes,
                                                        std::size_t length,
                                                        std::uint32_t checksum) {
  Lanes a = Load(bytes) ^ Lanes { static_cast<long long>(checksum), 0 };
  Lanes b = Load(bytes + kLane);
  Lanes c = Load(bytes + 2 * kLane);
  Lanes d = Load(bytes + 3 * kLane);
  for (bytes += kStride, length -= kStride; length >= kStride; bytes += kStride) {
    a = Fold(a, kBy64, Load(bytes));
    b = Fold(b, kBy64, Load(bytes + kLane));
    c = Fold(c, kBy64, Load(bytes + 2 * kLane));
    d = Fold(d, kBy64, Load(bytes + 3 * kLane));
    length -= kStride;
  }
  a = Fold(Fold(Fold(a, kBy16, b), kBy16, c), kBy16, d);
  for (; length >= kLane; bytes += kLane, length -= kLane) a = Fold(a, kBy16, Load(bytes));

  // 128 bits to 96, to 64, to 32.
  Lanes rest = __builtin_ia32_pclmulqdq128(a, kBy16, 0x10) ^ Lanes { a[1], 0 };
  const auto low = static_cast<unsigned long long>(rest[0]);
  const auto high = static_cast<unsigned long long>(rest[1]);
  const Lanes shifted = {static_cast<long long>(low >> 32 | high << 32),
                         static_cast<long long>(high >> 32)};
  rest = __builtin_ia32_pclmulqdq128(rest & kLow32, kBy8, 0x00) ^ shifted;
  Lanes quotient = __builtin_ia32_pclmulqdq128(rest & kLow32, kPolynomial, 0x10);
  quotient = __builtin_ia32_pclmulqdq128(quotient & kLow32, kPolynomial, 0x00);
  return static_cast<std::uint32_t>(static_cast<unsigned long long>((rest ^ quotient)[0]) >> 32);
}

bool HasMultiplication() {
  static const bool has = __builtin_cpu_supports("pclmul");
  return has;
}

#else

constexpr std::size_t kLane = 1;
constexpr std::size_t kStride = 1;
std::uint32_t FoldAll(const std::uint8_t*, std::size_t, std::uint32_t checksum) { return checksum; }
bool HasMultiplication() { return false; }

#endif

}  // namespace

std::uint32_t Checksum(std::span<const std::uint8_t> bytes, std::uint32_t checksum) {
  if (bytes.size() >= kStride && HasMultiplication()) {
    const std::size_t length = bytes.size() / kLane * kLane;
    checksum = ~FoldAll(bytes.data(), length, ~checksum);
    bytes = bytes.subspan(length);
    if (bytes.empty()) return checksum;
  }
  return static_cast<std::uint32_t>(::crc32_z(checksum, bytes.data(), bytes.size()));
}

}  // namespace vornalux::journal_format
