// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/mistakes.h"

#include <CLI/CLI.hpp>
#include <string_view>

namespace vornalux {

std::string PlainMistake(std::string text) {
  const auto before = [&text](std::string_view mark) {
    const std::size_t at = text.find(mark);
    return at == std::string::npos ? std::string() : text.substr(0, at);
  };
  if (const std::string option = before(": At Most 1 required but received"); !option.empty()) {
    return option + " is given more than once";
  }
  if (const std::string option = before(": 1 required "); !option.empty()) {
    return option + " needs a value behind it";
  }
  constexpr std::string_view kExcludes = " excludes ";
  if (const std::string option = before(kExcludes); !option.empty()) {
    return option + " and " + text.substr(option.size() + kExcludes.size()) + " do not go together";
  }
  return text;
}

void RefuseSwallowedOptions(const CLI::App& command, std::span<const std::string> arguments) {
  for (std::size_t i = 1; i + 1 < arguments.size(); ++i) {
    const std::string name = arguments[i].substr(0, arguments[i].find('='));
    const bool whole = name.size() == arguments[i].size() || name.size() + 1 == arguments[i].size();
    if (!name.starts_with("--") || !whole || !arguments[i + 1].starts_with("--")) continue;
    const CLI::Option* const option = command.get_option_no_throw(name);
    if (option == nullptr || option->get_items_expected_min() == 0) continue;
    throw CLI::ValidationError(name, arguments[i + 1] + " is an option, not a value of this one");
  }
}

}  // namespace vornalux
