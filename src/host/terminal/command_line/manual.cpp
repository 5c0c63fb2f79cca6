// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/manual.h"

#include <algorithm>
#include <cctype>
#include <ostream>
#include <sstream>
#include <string_view>
#include <utility>

namespace vornalux {
namespace {

bool IsWord(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

// Text that formatters show as it stands. What can be typed keeps its dashes, which they would make
// typographical ones.
std::string Roff(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool inside = i > 0 && IsWord(text[i - 1]) && i + 1 < text.size() && IsWord(text[i + 1]);
    switch (c) {
      case '\\':
        out += "\\e";
        break;
      case '\'':
        out += "\\(aq";
        break;
      case '"':
        out += "\\(dq";
        break;
      case '`':
        out += "\\(ga";
        break;
      case '^':
        out += "\\(ha";
        break;
      case '~':
        out += "\\(ti";
        break;
      case '-':
        out += inside ? "-" : "\\-";
        break;
      default:
        out += c;
    }
  }
  // Such a line would be a request.
  return out.starts_with('.') ? "\\&" + out : out;
}

// A name: all its dashes are meant.
std::string Bold(const std::string& name) {
  std::string out;
  for (const char c : Roff(name))
    out += c == '-' && !out.ends_with('\\') ? "\\-" : std::string(1, c);
  return "\\fB" + out + "\\fR";
}

std::string Italic(const std::string& value) { return "\\fI" + Roff(value) + "\\fR"; }

// Roff broken into lines as editors like them, none of which is a request.
std::string Filled(const std::string& roff) {
  constexpr std::size_t kWidth = 78;
  std::string out;
  std::string line;
  std::istringstream words(roff);
  for (std::string word; words >> word;) {
    const bool full = line.size() + 1 + word.size() > kWidth;
    if (full) out += std::exchange(line, {}) + "\n";
    if (full && word.starts_with('.')) word = "\\&" + word;
    line += (line.empty() ? "" : " ") + word;
  }
  return out + line + "\n";
}

std::string Sentence(const std::string& text) {
  const bool ended = text.empty() || std::string_view(".!?").find(text.back()) != std::string::npos;
  return Filled(Roff(text + (ended ? "" : ".")));
}

std::string Joined(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + Bold(name);
  return out;
}

// "--png FILE"
std::string Typed(const GrammarOption& option) {
  if (option.Positional()) return Italic(option.value);
  return Joined(option.names) + (option.value.empty() ? "" : " " + Italic(option.value));
}

std::string UsedAs(const GrammarOption& option) {
  const bool positional = option.Positional();
  std::string used =
      positional ? Italic(option.value) : Bold(option.Name()) + " " + Italic(option.value);
  if (option.repeated) used += " ...";
  return option.required ? used : "[" + used + "]";
}

// An option, and the commands that take it in the same sense.
struct Entry {
  const GrammarOption* option;
  std::vector<std::string> commands;
};

bool SameSense(const GrammarOption& a, const GrammarOption& b) {
  return a.names == b.names && a.value == b.value && a.help == b.help;
}

std::vector<Entry> EntriesOf(const Grammar& grammar) {
  std::vector<Entry> entries;
  for (const GrammarCommand& command : grammar.commands) {
    for (const GrammarOption& option : command.options) {
      if (option.Positional()) continue;
      const auto same = [&option](const Entry& entry) { return SameSense(*entry.option, option); };
      auto entry = std::find_if(entries.begin(), entries.end(), same);
      if (entry == entries.end()) entry = entries.insert(entry, {&option, {}});
      entry->commands.push_back(command.name);
    }
  }
  const auto key = [](const Entry& entry) { return entry.option->Name(); };
  std::stable_sort(entries.begin(), entries.end(),
                   [&key](const Entry& a, const Entry& b) { return key(a) < key(b); });
  return entries;
}

}  // namespace

void WriteSynopsis(const Grammar& grammar, std::ostream& out) {
  for (const GrammarCommand& command : grammar.commands) {
    out << ".HP\n" << Bold("vornalux") << ' ' << Bold(command.name);
    for (const GrammarOption& option : command.options) {
      if (option.required && !option.Positional()) out << ' ' << UsedAs(option);
    }
    out << " [" << Italic("options") << ']';
    for (const GrammarOption& option : command.options) {
      if (option.Positional()) out << ' ' << UsedAs(option);
    }
    if (command.job_line) out << ' ' << Bold("--") << ' ' << Italic("job line");
    out << '\n';
  }
  for (const GrammarOption& option : grammar.options) {
    out << ".HP\n" << Bold("vornalux") << ' ' << Typed(option) << '\n';
  }
}

void WriteNotes(const Grammar& grammar, std::ostream& out) { out << Filled(Roff(grammar.notes)); }

void WriteCommands(const Grammar& grammar, std::ostream& out) {
  for (const GrammarCommand& command : grammar.commands) {
    out << ".TP\n" << Bold(command.name) << '\n' << Sentence(command.purpose);
  }
  for (const GrammarCommand& command : grammar.commands) {
    if (command.notes.empty()) continue;
    out << ".SS vornalux " << command.name << "\n.EX\n";
    bool begun = false;
    for (const std::string& line : LinesOf(command.notes)) {
      if (begun || !line.empty()) out << Roff(line) << '\n';
      begun = begun || !line.empty();
    }
    out << ".EE\n";
  }
}

void WriteOptions(const Grammar& grammar, std::ostream& out) {
  for (const Entry& entry : EntriesOf(grammar)) {
    const GrammarOption& option = *entry.option;
    out << ".TP\n" << Typed(option) << '\n' << Sentence(option.help);
    if (!option.choices.empty()) out << Filled("One of " + Joined(option.choices) + ".");
    if (!option.only_with.empty()) out << Filled("Only with " + Joined(option.only_with) + ".");
    if (!option.not_with.empty()) out << Filled("Not with " + Joined(option.not_with) + ".");
    if (entry.commands.size() == grammar.commands.size()) continue;
    out << ".br\n" << Filled("Commands: " + Joined(entry.commands) + ".");
  }
}

void WriteExitCodes(const Grammar& grammar, std::ostream& out) {
  for (const auto& [code, meaning] : grammar.exit_codes) {
    out << ".TP\n" << Bold(code) << '\n' << Sentence(meaning);
  }
}

}  // namespace vornalux
