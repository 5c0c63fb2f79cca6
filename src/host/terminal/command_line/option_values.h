// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vornalux {

// "4096", "64K", "1m", "2GB", "2GiB" as a number of bytes: units are powers of 1,024. Nothing when
// it is no such, or too large for a number.
std::optional<std::uint64_t> ParseSize(std::string_view text);

// Digits alone.
std::optional<std::uint64_t> ParseDigits(std::string_view text);

// A list of extensions as the engine takes it: "*.iso; *.vhd", from that or "iso, .vhd". Throws
// std::invalid_argument, which says why, for what would leave out nothing.
std::string ParseExtensions(const std::string& text);

// "; did you mean --json?" for what is nearly one of those known, else nothing.
std::string DidYouMean(const std::string& given, const std::vector<std::string>& known);

}  // namespace vornalux
