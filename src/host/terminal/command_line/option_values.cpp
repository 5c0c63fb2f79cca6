// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/option_values.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <stdexcept>

#include "text/ascii_case.h"
#include "text/trimmed.h"

namespace vornalux {
namespace {

// Letters to be put in, left out or exchanged to make one of the other.
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t k = 0; k < to.size(); ++k) {
      const std::size_t exchanged = diagonal + (from[i] == to[k] ? 0 : 1);
      diagonal = row[k + 1];
      row[k + 1] = std::min({exchanged, row[k] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

// The parser's own reading of numbers takes "-1", what is too large for the largest one, and "010"
// for 8.
std::optional<std::uint64_t> ParseSize(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return std::nullopt;
  std::string_view unit(rest, static_cast<std::size_t>(end - rest));
  if (unit.empty()) return number;
  const std::size_t power = std::string_view("KkMmGgTt").find(unit.front());
  unit.remove_prefix(1);
  const bool named = unit.empty() || EqualIgnoringAsciiCase(unit, "b") || unit == "iB";
  if (power == std::string_view::npos || !named) return std::nullopt;
  const std::size_t shift = 10 * (power / 2 + 1);
  if (number > UINT64_MAX >> shift) return std::nullopt;
  return number << shift;
}

std::optional<std::uint64_t> ParseDigits(std::string_view text) {
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  return ParseSize(text);
}

std::string ParseExtensions(const std::string& text) {
  std::string list;
  for (std::size_t at = 0; (at = text.find_first_not_of(";, ", at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(";,", at), text.size());
    const std::string given = Trimmed(text.substr(at, end - at));
    at = end;
    const std::size_t first = given.starts_with("*.") ? 2 : given.starts_with('.') ? 1 : 0;
    const std::string extension = given.substr(first);
    if (extension.empty() || extension.find_first_of("*?.:/\\<>|\"") != std::string::npos) {
      throw std::invalid_argument(given +
                                  " leaves out nothing: what counts is the extension, what " +
                                  "follows a name's last dot, as in '*.iso; *.vhd'");
    }
    list += (list.empty() ? "*." : "; *.") + extension;
  }
  if (list.empty() && !text.empty()) {
    throw std::invalid_argument("there is no extension in \"" + text + "\"");
  }
  return list;
}

std::string DidYouMean(const std::string& given, const std::vector<std::string>& known) {
  const std::string* best = nullptr;
  std::size_t least = std::max<std::size_t>(given.size() / 3, 1) + 1;
  for (const std::string& each : known) {
    const std::size_t distance = Distance(given, each);
    const bool begun = given.size() >= 4 && each.starts_with(given);
    if (distance >= least && !begun) continue;
    least = std::min(distance, least);
    best = &each;
  }
  return best == nullptr ? "" : "; did you mean " + *best + "?";
}

}  // namespace vornalux
