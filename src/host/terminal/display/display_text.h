// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace vornalux {

// What a terminal can show.
enum class Charset { Ascii, Utf8 };

// The character set of the user's locale. Sets up the C library so that Utf8 can be measured
// whatever that locale is; to be called once, before any text of kind Utf8.
Charset SetUpCharset();

// The same text with everything replaced that could steer a terminal or that it cannot show:
// control and direction characters, invalid UTF-8, and on Ascii all else. Names come from volumes
// that nobody vouches for.
std::string PrintableText(std::string_view text, Charset charset);

// A temperature, whose degree sign is left out where it cannot be shown.
std::string WithDegrees(std::string text, Charset charset);

// As PrintableText, with line breaks (CR LF or LF) kept as LF.
std::string PrintableLines(std::string_view text, Charset charset);

// Columns that printable text takes.
int DisplayWidth(std::string_view text, Charset charset);

// Printable text of at most `columns` columns: the end is cut off.
std::string CutText(std::string_view text, int columns, Charset charset);

// Printable text of at most `columns` columns: what is too long loses its middle, so that both the
// drive and the file's own name stay in sight.
std::string ShortenedText(std::string_view text, int columns, Charset charset);

}  // namespace vornalux
