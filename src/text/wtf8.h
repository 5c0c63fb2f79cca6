// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vornalux {

// The program's text is UTF-8, in which unpaired surrogates are code points like others (WTF-8):
// every UTF-16 name comes back from it as it was.

// The code point at the front of text, which must not be empty, taken off it. Nothing, and nothing
// taken, for a malformed or overlong sequence.
std::optional<char32_t> TakeCodePoint(std::string_view& text);
void AppendCodePoint(std::string& out, char32_t code);
void AppendCodePoint(std::u16string& out, char32_t code);

std::string ToWtf8(std::u16string_view text);
// Nothing for bytes that are no WTF-8.
std::optional<std::u16string> FromWtf8(std::string_view text);

}  // namespace vornalux
