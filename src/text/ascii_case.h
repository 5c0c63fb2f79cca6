// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace vornalux {

// Letters beyond ASCII are left alone: what the system makes of them is its own affair.
constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr char UpperCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string LowerCase(std::string text) {
  for (char& c : text) c = LowerCase(c);
  return text;
}

inline std::string UpperCase(std::string text) {
  for (char& c : text) c = UpperCase(c);
  return text;
}

inline bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return LowerCase(x) == LowerCase(y); });
}

}  // namespace vornalux
