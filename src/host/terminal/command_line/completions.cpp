// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/completions.h"

#include <map>
#include <ostream>
#include <string_view>

#include "text/shell_text.h"

namespace vornalux {
namespace {

std::string Joined(const std::vector<std::string>& words, const char* between = " ") {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : between) + word;
  return out;
}

std::vector<std::string> CommandNames(const Grammar& grammar) {
  std::vector<std::string> names;
  for (const GrammarCommand& command : grammar.commands) names.push_back(command.name);
  return names;
}

std::vector<std::string> OptionNames(const std::vector<GrammarOption>& options) {
  std::vector<std::string> names;
  for (const GrammarOption& option : options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return names;
}

bool TakesVolume(const GrammarCommand& command) {
  for (const GrammarOption& option : command.options) {
    if (option.Positional() && option.TakesFile()) return true;
  }
  return false;
}

// --- bash

constexpr const char* kBashBegin = R"(# bash completion for vornalux, made by the program itself

_vornalux() {
  local cur=${COMP_WORDS[COMP_CWORD]} i word command='' before='' name=''
  local words='' files='' dashes=''
  local -a given=()
  COMPREPLY=()
  # "=" and ":" are words of their own: --png=FILE, C=IMAGE
  [[ $cur == [=:] ]] && cur=
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    [[ $word == [=:] ]] || given+=("$word")
    [[ $word == -- && ${COMP_WORDS[1]} == job ]] && dashes=1
  done
  ((${#given[@]} > 0)) && command=${given[0]} before=${given[-1]}
  ((${#given[@]} > 1)) && name=${given[-2]}
)";

constexpr const char* kBashEnd = R"(  if [[ $files ]]; then
    compopt -o default 2>/dev/null
  else
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
  fi
}
complete -F _vornalux vornalux
)";

// What follows an option is no option, and a file only where one is meant.
std::string BashValue(const GrammarOption& option) {
  if (option.TakesFile()) return "words='' files=1";
  if (option.TakesLetterAndFile()) return "words=C= files=''; compopt -o nospace 2>/dev/null";
  return "words=" + InSingleQuotes(Joined(option.choices)) + " files=''";
}

void WriteBashCommand(const GrammarCommand& command, const Grammar& grammar, std::ostream& out) {
  out << "    " << command.name << ")\n";
  if (TakesVolume(command)) out << "      [[ $cur == -* ]] || files=1\n";
  out << "      words="
      << InSingleQuotes(Joined(OptionNames(command.options)) + (command.job_line ? " --" : ""))
      << '\n';
  std::map<std::string, std::vector<std::string>> values;
  for (const GrammarOption& option : command.options) {
    if (option.Positional() || option.value.empty()) continue;
    std::vector<std::string>& names = values[BashValue(option)];
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  out << "      case $before in\n";
  for (const auto& [value, names] : values) {
    out << "        " << Joined(names, " | ") << ") " << value << " ;;\n";
  }
  out << "      esac\n";
  for (const GrammarOption& option : command.options) {
    if (!option.TakesLetterAndFile()) continue;
    out << "      [[ $name == " << option.Name() << " && $before == [A-Za-z] ]] && files=1\n";
  }
  if (command.job_line) {
    out << "      if [[ $dashes ]]; then\n        files='' words="
        << InSingleQuotes(Joined(grammar.job_switches)) << '\n'
        << "        [[ ${before,,} == @(" << grammar.job_switches[0] << '|'
        << grammar.job_switches[1] << ") ]] && words=''\n      fi\n";
  }
  out << "      ;;\n";
}

// --- zsh

// A text inside of an argument's description.
std::string ZshText(std::string_view text) { return WithBackslashBefore("\\:[]", text); }

std::string ZshAction(const GrammarOption& option) {
  if (option.TakesFile()) return "_files";
  if (option.TakesLetterAndFile()) return "_vornalux_volume";
  return option.choices.empty() ? " " : "(" + Joined(option.choices) + ")";
}

std::string ZshArgument(const GrammarOption& option, const std::string& name) {
  std::string out = "(" + Joined(option.not_with);
  if (!option.repeated) {
    out += (option.not_with.empty() ? "" : " ") + Joined(option.names);
  }
  out += ")";
  if (option.repeated) out += "*";
  out += name;
  if (!option.value.empty() && name.starts_with("--")) out += "=";
  out += "[" + ZshText(option.help) + "]";
  if (!option.value.empty()) out += ":" + ZshText(option.value) + ":" + ZshAction(option);
  return out;
}

constexpr const char* kZshBegin = R"(#compdef vornalux
# made by the program itself

_vornalux_volume() {
  if compset -P '[A-Za-z](|:)='; then
    _files
  else
    compadd -S '' -- C=
  fi
}

_vornalux() {
  local -a commands=(
)";

void WriteZshCommand(const GrammarCommand& command, const Grammar& grammar, std::ostream& out) {
  out << "    " << command.name << ")\n";
  if (command.job_line) {
    out << "      if (( ${words[(Ie)--]} && ${words[(Ie)--]} < CURRENT )); then\n"
        << "        [[ ${words[CURRENT-1]:l} == (" << grammar.job_switches[0] << '|'
        << grammar.job_switches[1] << ") ]] || compadd -- " << Joined(grammar.job_switches)
        << "\n        return\n      fi\n";
  }
  out << "      _arguments -S";
  for (const GrammarOption& option : command.options) {
    for (const std::string& name : option.names) {
      out << " \\\n        " << InSingleQuotes(ZshArgument(option, name));
    }
    if (!option.Positional()) continue;
    out << " \\\n        "
        << InSingleQuotes(std::string(option.repeated ? "*" : "") + ":" + ZshText(option.value) +
                          ":" + ZshAction(option));
  }
  out << "\n      ;;\n";
}

// --- fish

void WriteFishOption(const GrammarOption& option, const std::string& condition, std::ostream& out) {
  out << "complete -c vornalux -n '" << condition << "'";
  for (const std::string& name : option.names) {
    const bool is_long = name.starts_with("--");
    out << (is_long ? " -l " : " -s ") << name.substr(is_long ? 2 : 1);
  }
  if (option.TakesFile() || option.TakesLetterAndFile()) {
    out << (option.Positional() ? " -F" : " -r -F");
  } else if (!option.value.empty()) {
    out << " -x";
    if (!option.choices.empty()) out << " -a '" << Joined(option.choices) << "'";
  }
  if (!option.Positional()) {
    out << " -d '" << WithBackslashBefore("\\'", option.help) << "'";
  }
  out << '\n';
}

}  // namespace

void WriteBash(const Grammar& grammar, std::ostream& out) {
  out << kBashBegin << "  case $command in\n    '') words="
      << InSingleQuotes(Joined(CommandNames(grammar)) + " " + Joined(OptionNames(grammar.options)))
      << " ;;\n";
  for (const GrammarCommand& command : grammar.commands) WriteBashCommand(command, grammar, out);
  out << "  esac\n" << kBashEnd;
}

void WriteZsh(const Grammar& grammar, std::ostream& out) {
  out << kZshBegin;
  for (const GrammarCommand& command : grammar.commands) {
    out << "    " << InSingleQuotes(command.name + ":" + ZshText(command.purpose)) << '\n';
  }
  out << "  )\n  if (( CURRENT == 2 )); then\n    _describe -t commands command commands\n"
      << "    compadd -- " << Joined(OptionNames(grammar.options)) << "\n    return\n  fi\n"
      << "  local command=$words[2]\n  shift words\n  (( CURRENT-- ))\n  case $command in\n";
  for (const GrammarCommand& command : grammar.commands) WriteZshCommand(command, grammar, out);
  out << "  esac\n}\n\nif [[ $funcstack[1] == _vornalux ]]; then\n  _vornalux \"$@\"\nelse\n"
      << "  compdef _vornalux vornalux\nfi\n";
}

void WriteFish(const Grammar& grammar, std::ostream& out) {
  out << "# made by the program itself\ncomplete -c vornalux -f\n";
  const std::string none = "__fish_use_subcommand";
  for (const GrammarCommand& command : grammar.commands) {
    out << "complete -c vornalux -n " << none << " -a " << command.name << " -d '"
        << WithBackslashBefore("\\'", command.purpose) << "'\n";
  }
  for (const GrammarOption& option : grammar.options) WriteFishOption(option, none, out);
  const std::string dashes = "contains -- -- (commandline -opc)";
  for (const GrammarCommand& command : grammar.commands) {
    std::string condition = "__fish_seen_subcommand_from " + command.name;
    if (command.job_line) {
      out << "complete -c vornalux -n '" << condition << "; and " << dashes << "' -a '"
          << Joined(grammar.job_switches) << "'\n";
      condition += "; and not " + dashes;
    }
    for (const GrammarOption& option : command.options) WriteFishOption(option, condition, out);
  }
}

}  // namespace vornalux
