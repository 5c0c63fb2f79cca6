// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/grammar.h"

#include <CLI/CLI.hpp>
#include <map>
#include <sstream>

#include "app/job.h"
#include "host/terminal/command_line/completions.h"
#include "host/terminal/command_line/manual.h"

namespace vornalux {
namespace {

constexpr std::string_view kExitCodes = "Exit codes:";

// "FILE" of "FILE", "BYTES" of "UINT:BYTES", and what "TEXT:{now,later}" leaves to choose from.
void ReadValue(const std::string& type, GrammarOption& option) {
  const std::size_t colon = type.find(':');
  option.value = type.substr(0, colon);
  if (colon == std::string::npos) return;
  const std::string detail = type.substr(colon + 1);
  const std::size_t open = detail.find('{');
  const std::size_t close = detail.find('}');
  if (open == std::string::npos || close == std::string::npos || close < open) {
    option.value = detail;
    return;
  }
  std::istringstream words(detail.substr(open + 1, close - open - 1));
  for (std::string word; std::getline(words, word, ',');) {
    option.choices.push_back(word.substr(0, word.find("->")));
  }
}

GrammarOption ReadOption(const CLI::Option& from) {
  GrammarOption option;
  for (const std::string& name : from.get_snames()) option.names.push_back("-" + name);
  for (const std::string& name : from.get_lnames()) option.names.push_back("--" + name);
  option.help = from.get_description();
  option.required = from.get_required();
  if (from.get_items_expected_max() > 0) ReadValue(from.get_type_name(), option);
  if (option.Positional()) option.value = from.get_name(true);
  // Who takes one value each time it is given is repeated, too.
  option.repeated = from.get_expected_max() > 1;
  const auto name_all = [](const std::set<CLI::Option*>& others, std::vector<std::string>& names) {
    for (const CLI::Option* other : others) names.push_back(other->get_name());
    std::sort(names.begin(), names.end());
  };
  name_all(from.get_excludes(), option.not_with);
  name_all(from.get_needs(), option.only_with);
  return option;
}

std::vector<GrammarOption> ReadOptions(const CLI::App& app) {
  std::vector<GrammarOption> options;
  for (const CLI::Option* option : app.get_options()) {
    const bool hidden = option->get_group().empty();
    if (!hidden) options.push_back(ReadOption(*option));
  }
  return options;
}

// Text lines, then "Exit codes:" and a line for each.
void ReadFooter(const std::string& footer, Grammar& grammar) {
  bool codes = false;
  for (const std::string& line : LinesOf(footer)) {
    if (line == kExitCodes) {
      codes = true;
    } else if (!codes) {
      grammar.notes += line + "\n";
    } else if (const std::size_t digit = line.find_first_not_of(' '); digit != std::string::npos) {
      const std::size_t end = line.find(' ', digit);
      grammar.exit_codes.emplace_back(line.substr(digit, end - digit),
                                      line.substr(line.find_first_not_of(' ', end)));
    }
  }
}

}  // namespace

bool GrammarOption::TakesFile() const { return value == "FILE" || value.starts_with("IMAGE"); }

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream all(text);
  for (std::string line; std::getline(all, line);) lines.push_back(line);
  return lines;
}

Grammar ReadGrammar(const CLI::App& app) {
  Grammar grammar;
  grammar.purpose = app.get_description();
  grammar.options = ReadOptions(app);
  ReadFooter(app.get_footer(), grammar);
  grammar.job_switches = JobSwitches();
  for (const CLI::App* from : app.get_subcommands({})) {
    GrammarCommand command{from->get_name(), from->get_description(), from->get_footer(), {}};
    const std::size_t common = command.notes.find(app.get_footer());
    if (common != std::string::npos) command.notes.erase(common);
    command.options = ReadOptions(*from);
    command.job_line = command.name == "job";
    grammar.commands.push_back(std::move(command));
  }
  return grammar;
}

bool Describe(const CLI::App& app, const std::string& what, std::ostream& out) {
  static const std::map<std::string, void (*)(const Grammar&, std::ostream&)> kWriters = {
      {"synopsis", WriteSynopsis},
      {"notes", WriteNotes},
      {"commands", WriteCommands},
      {"options", WriteOptions},
      {"exit-codes", WriteExitCodes},
      {"bash", WriteBash},
      {"zsh", WriteZsh},
      {"fish", WriteFish}};
  const auto writer = kWriters.find(what);
  if (writer == kWriters.end()) return false;
  writer->second(ReadGrammar(app), out);
  return true;
}

}  // namespace vornalux
