// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/job_tail.h"

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
  while (drive.ends_with('\\')) drive.remove_suffix(1);
  return std::string(drive) + "\\";
}

std::string NormalFolder(std::string_view folder) {
  while (folder.starts_with('\\')) folder.remove_prefix(1);
  while (folder.ends_with('\\')) folder.remove_suffix(1);
  return std::string(folder);
}

}  // namespace vornalux
