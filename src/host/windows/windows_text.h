// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vornalux {

// The program's text is UTF-8, with unpaired surrogates as WTF-8; the system's is UTF-16 or in one
// of its code pages. UTF-16 is converted here, not by the system, which would replace unpaired
// surrogates: every wide text comes back from UTF-8 as it was.

// Bytes that are no UTF-8 become U+FFFD.
std::wstring ToWide(std::string_view text);
std::string FromWide(std::wstring_view text);

// A path as the system is to take it, literally: with the "\\?\" prefix, which is put before
// "C:\..." where it is missing, so that long names and names with a dot at the end stay what they
// are. Null for text that is no UTF-8 or holds a NUL, since it would name another file.
std::optional<std::wstring> ToWidePath(std::string_view path);

// Code pages of the A form of calls. A character that a page does not have becomes the one that the
// system thinks nearest, at worst '?'.
std::string ToAnsi(std::string_view text);
std::string FromAnsi(std::string_view text);
std::string ToOem(std::string_view text);
std::string FromOem(std::string_view text);

}  // namespace vornalux
