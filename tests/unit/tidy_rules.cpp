// SPDX-License-Identifier: GPL-2.0-or-later
#include "unit/tidy_rules.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace vornalux {
namespace {

using Names = std::set<std::string>;

Names Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

const Names kPortable = {"text", "platform", "volume", "engine", "forms",
                         "ui",   "health",   "shell",  "app"};

// A folder of src/, and what its files may include besides the standard library.
const std::map<std::string, Names> kMayInclude = {
    {"text", {"text"}},
    {"platform", {"text", "platform"}},
    {"volume", {"text", "platform", "volume"}},
    {"engine", {"text", "platform", "volume", "engine"}},
    {"forms", {"text", "platform", "forms"}},
    {"ui", {"text", "platform", "volume", "engine", "forms", "health", "ui"}},
    {"health", {"text", "platform", "volume", "engine", "forms", "health"}},
    {"shell", {"text", "platform", "volume", "engine", "forms", "shell"}},
    {"app", kPortable},
};

// Hosts that are portable all the same: they run wherever the engine is tested.
const Names kPortableHosts = {"host/mounted", "host/simulated"};

// The C++ library, without the headers that C or a system brings along.
const Names kStandardHeaders = Words(R"(
algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono
cinttypes climits clocale cmath codecvt compare complex concepts condition_variable coroutine
csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype deque
exception execution filesystem format forward_list fstream functional future initializer_list
iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource
mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator
semaphore set shared_mutex source_location span sstream stack stdexcept stop_token streambuf
string string_view syncstream system_error thread tuple type_traits typeindex typeinfo
unordered_map unordered_set utility valarray variant vector version)");

// "ui" for src/ui/x.h, "host/image" for src/host/image/fat/x.h; empty outside src/.
std::string FolderOf(const std::string& path) {
  static const std::regex kFolder("src/(host/[^/]+|[^/]+)/.*");
  std::smatch match;
  return std::regex_match(path, match, kFolder) ? match[1].str() : "";
}

bool StartsWithFolder(const std::string& include, const std::string& folder) {
  return include.starts_with(folder + "/");
}

// The folders of src/ that a file in this folder may include from.
Names AllowedFolders(const std::string& folder) {
  if (const auto rule = kMayInclude.find(folder); rule != kMayInclude.end()) return rule->second;
  Names allowed = kPortable;
  allowed.insert("host/mounted");
  if (folder == "host/simulated") allowed.insert("host/simulated");
  if (!kPortableHosts.contains(folder)) allowed.insert("host");
  return allowed;
}

bool MayUseSystem(const std::string& folder) {
  return folder.starts_with("host/") && !kPortableHosts.contains(folder);
}

std::string CheckInclude(const std::string& folder, bool quoted, const std::string& name) {
  if (!quoted) {
    if (kStandardHeaders.contains(name) || MayUseSystem(folder)) return "";
    return "<" + name + "> is no header of the C++ library";
  }
  const Names allowed = AllowedFolders(folder);
  const bool known = std::any_of(allowed.begin(), allowed.end(), [&](const std::string& other) {
    return StartsWithFolder(name, other);
  });
  if (known && name.find("..") == std::string::npos) return "";
  return "\"" + name + "\" may not be included from " + folder + "/";
}

std::string CheckIncludeLine(const std::string& folder, const std::string& line) {
  static const std::regex kInclude(R"(\s*#\s*(?:include|include_next|import)\b\s*(.*))");
  static const std::regex kName(R"re((?:"([^"]+)"|<([^>]+)>).*)re");
  std::smatch directive;
  if (!std::regex_match(line, directive, kInclude)) return "";
  const std::string operand = directive[1];
  std::smatch name;
  if (!std::regex_match(operand, name, kName)) return "an include that cannot be read: " + operand;
  return CheckInclude(folder, name[1].matched, name[1].matched ? name[1] : name[2]);
}

}  // namespace

std::vector<std::string> CheckSourceFile(const std::string& path, const std::string& text) {
  std::vector<std::string> problems;
  const auto report = [&](std::size_t number, const std::string& problem) {
    if (!problem.empty()) problems.push_back(path + ":" + std::to_string(number) + ": " + problem);
  };
  const std::string folder = FolderOf(path);
  const bool in_source = path.starts_with("src/");
  if (in_source && !kMayInclude.contains(folder) && !folder.starts_with("host/")) {
    report(1, "nobody has said what src/" + folder + "/ may include");
  }
  std::istringstream lines(text);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (number == 1 && line != "// SPDX-License-Identifier: GPL-2.0-or-later") {
      report(1, "does not begin with the licence line");
    }
    if (in_source) report(number, CheckIncludeLine(folder, line));
  }
  if (text.empty()) report(1, "is empty");
  return problems;
}

}  // namespace vornalux
