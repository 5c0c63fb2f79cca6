// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/job_tail.h"

#include <algorithm>

namespace vornalux {

JobTail SplitTail(std::string_view tail) {
  enum class Quote { NotSeen, Inside, Closed };
  JobTail result;
  std::string token;
  Quote quote = Quote::NotSeen;
  for (const char c : tail) {
    if (quote == Quote::Inside) {
      if (c == '"') {
        quote = Quote::Closed;
      } else {
        result.quoted += c;
        token += c == ' ' ? '%' : c;
      }
      continue;
    }
    if (c == ' ') {
      result.tokens.push_back(std::move(token));
      token.clear();
      continue;
    }
    token += c;
    if (c == '"' && quote == Quote::NotSeen) quote = Quote::Inside;
  }
  result.tokens.push_back(std::move(token));
  return result;
}

std::string NormalRoot(std::string_view drive) {
  return std::string(drive.substr(0, drive.find_last_not_of("\\/") + 1)) + "\\";
}

std::string NormalFolder(std::string_view folder) {
  std::string text(folder);
  std::ranges::replace(text, '/', '\\');
  text.erase(text.find_last_not_of('\\') + 1);
  return text.substr(std::min(text.size(), text.find_first_not_of('\\')));
}

}  // namespace vornalux
