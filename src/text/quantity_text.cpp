// SPDX-License-Identifier: GPL-2.0-or-later
#include "text/quantity_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vornalux {
namespace {

// One decimal, rounded.
std::string Tenths(std::int64_t tenths) {
  return Grouped(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string TwoDigits(std::int64_t number) {
  return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
}

}  // namespace

std::string Grouped(std::int64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > 3 && digits[at - 4] != '-';) {
    at -= 3;
    digits.insert(at, 1, ',');
  }
  return digits;
}

std::string Counted(std::int64_t count, const char* one) {
  return Grouped(count) + " " + one + (count == 1 ? "" : "s");
}

std::string ByteText(std::int64_t bytes) {
  constexpr std::array<const char*, 5> kUnits = {"bytes", "KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return Counted(bytes, "byte");
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  const auto tenths = static_cast<std::int64_t>(value * 10 + 0.5);
  return (tenths % 10 == 0 ? Grouped(tenths / 10) : Tenths(tenths)) + " " + kUnits[unit];
}

std::string PercentText(std::int64_t part, std::int64_t whole) {
  if (whole <= 0) return "";
  const double share = static_cast<double>(part) / static_cast<double>(whole);
  return Tenths(static_cast<std::int64_t>(share * 1000 + 0.5)) + "%";
}

std::string ClockText(std::chrono::seconds duration) {
  const std::int64_t seconds = std::max<std::int64_t>(duration.count(), 0);
  const std::string end = ":" + TwoDigits(seconds % 60);
  const std::int64_t minutes = seconds / 60;
  if (minutes < 60) return std::to_string(minutes) + end;
  return std::to_string(minutes / 60) + ":" + TwoDigits(minutes % 60) + end;
}

}  // namespace vornalux
