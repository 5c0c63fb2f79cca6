// SPDX-License-Identifier: GPL-2.0-or-later
// The command line described: what the manual and the shells' completions are made of.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace vornalux {

struct GrammarOption {
  std::vector<std::string> names;    // "-h", "--help"; empty for a positional
  std::string value;                 // "FILE", of a positional its name; empty for a flag
  std::vector<std::string> choices;  // values that it takes, where these are all
  std::string help;
  std::vector<std::string> not_with;   // names of others
  std::vector<std::string> only_with;  // names of others
  bool required = false;
  bool repeated = false;

  // The one that is used in texts.
  const std::string& Name() const { return names.empty() ? value : names.back(); }
  bool Positional() const { return names.empty(); }
  // Whether its value is a path of this system.
  bool TakesFile() const;
  // Whether it is a volume under a drive letter.
  bool TakesLetterAndFile() const { return value == "C=IMAGE"; }
};

struct GrammarCommand {
  std::string name;
  std::string purpose;
  std::string notes;  // text of several lines about it alone, may be empty
  std::vector<GrammarOption> options;
  bool job_line = false;  // which follows behind "--"
};

struct Grammar {
  std::string purpose;
  std::vector<GrammarOption> options;  // without a command
  std::vector<GrammarCommand> commands;
  std::string notes;                                            // lines about all of them
  std::vector<std::pair<std::string, std::string>> exit_codes;  // and what they mean
  std::vector<std::string> job_switches;
};

Grammar ReadGrammar(const CLI::App& app);

// The lines of a text.
std::vector<std::string> LinesOf(const std::string& text);

// Writes what text ("manual", "bash" ...) names, made from the command line. False: no such thing.
bool Describe(const CLI::App& app, const std::string& what, std::ostream& out);

}  // namespace vornalux
