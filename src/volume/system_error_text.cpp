// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/system_error_text.h"

#include <charconv>

#include "text/ascii_case.h"

namespace vornalux {
namespace {

std::string Hex(ErrorCode code) {
  char digits[8];
  const auto end = std::to_chars(digits, digits + sizeof digits, code, 16).ptr;
  return UpperCase(std::string(digits, end));
}

}  // namespace

std::string SystemErrorText(Platform& platform, ErrorCode code) {
  std::string text = platform.machine.ErrorText(code);
  if (!text.empty()) {
    if (text.ends_with("\r\n")) text.resize(text.size() - 2);
    return text;
  }
  const std::string number = std::to_string(code);
  platform.desktop.ShowBox(
      "An error occurred with the FormatMessage\r\n API function call.\r\nError: " + number +
          " Hex(" + Hex(code) + ").",
      kProgramTitle, BoxButtons::Ok, BoxIcon::None);
  return "An internal system error occurred with the\r\nFormatMessage API function: " + number +
         ". No futher information\r\nis available.";
}

}  // namespace vornalux
