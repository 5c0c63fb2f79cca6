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

// Rooms of the larger folders, from the ground up: each may include those before it.
const std::map<std::string, std::vector<std::string>> kRooms = {
    {"host/image", {"device", "journal", "volume", "fat", "ntfs", "drive", "opening"}},
    {"host/terminal",
     {"command_line", "display", "output", "picture", "live", "user", "result", "saved_job",
      "session"}},
};

// Of a volume in an image these are portable too; they may ask zlib for checksums.
const Names kPortableRooms = {"device", "journal", "volume", "fat"};

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

// Where a file lies: "ui" for src/ui/x.h, "host/image" and "fat" for src/host/image/fat/x.h; empty
// outside src/.
struct Place {
  std::string folder;
  std::string room;
};

Place PlaceOf(const std::string& path) {
  static const std::regex kPlace("src/(host/[^/]+|[^/]+)/(?:([^/]+)/)?.*");
  std::smatch match;
  if (!std::regex_match(path, match, kPlace)) return {};
  return {match[1], match[2]};
}

// The floor of a room, 0 for the ground; above all for what lies in none.
std::ptrdiff_t FloorOf(const Place& place) {
  const auto rooms = kRooms.find(place.folder);
  if (rooms == kRooms.end()) return 0;
  const auto& names = rooms->second;
  return std::find(names.begin(), names.end(), place.room) - names.begin();
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

bool MayUse(const Place& place, const std::string& system_header) {
  if (!place.folder.starts_with("host/") || kPortableHosts.contains(place.folder)) return false;
  return place.folder != "host/image" || !kPortableRooms.contains(place.room) ||
         system_header == "zlib.h";
}

std::string CheckInclude(const Place& place, bool quoted, const std::string& name) {
  if (!quoted) {
    if (kStandardHeaders.contains(name) || MayUse(place, name)) return "";
    return "<" + name + "> is no header of the C++ library";
  }
  const std::string& folder = place.folder;
  const Place included = PlaceOf("src/" + name);
  if (included.folder == folder && FloorOf(included) > FloorOf(place)) {
    return "\"" + name + "\" stands above " + folder + "/" + place.room + "/";
  }
  const Names allowed = AllowedFolders(folder);
  const bool known = std::any_of(allowed.begin(), allowed.end(), [&](const std::string& other) {
    return StartsWithFolder(name, other);
  });
  if (known && name.find("..") == std::string::npos) return "";
  return "\"" + name + "\" may not be included from " + folder + "/";
}

std::string CheckIncludeLine(const Place& place, const std::string& line) {
  static const std::regex kInclude(R"(\s*#\s*(?:include|include_next|import)\b\s*(.*))");
  static const std::regex kName(R"re((?:"([^"]+)"|<([^>]+)>).*)re");
  std::smatch directive;
  if (!std::regex_match(line, directive, kInclude)) return "";
  const std::string operand = directive[1];
  std::smatch name;
  if (!std::regex_match(operand, name, kName)) return "an include that cannot be read: " + operand;
  return CheckInclude(place, name[1].matched, name[1].matched ? name[1] : name[2]);
}

}  // namespace

std::vector<std::string> CheckSourceFile(const std::string& path, const std::string& text) {
  std::vector<std::string> problems;
  const auto report = [&](std::size_t number, const std::string& problem) {
    if (!problem.empty()) problems.push_back(path + ":" + std::to_string(number) + ": " + problem);
  };
  const Place place = PlaceOf(path);
  const bool in_source = path.starts_with("src/");
  if (in_source && !kMayInclude.contains(place.folder) && !place.folder.starts_with("host/")) {
    report(1, "nobody has said what src/" + place.folder + "/ may include");
  }
  if (const auto rooms = kRooms.find(place.folder);
      rooms != kRooms.end() && !place.room.empty() && FloorOf(place) == std::ssize(rooms->second)) {
    report(1, "nobody has said where " + place.room + "/ stands in src/" + place.folder + "/");
  }
  std::istringstream lines(text);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (number == 1 && line != "// SPDX-License-Identifier: GPL-2.0-or-later") {
      report(1, "does not begin with the licence line");
    }
    if (in_source) report(number, CheckIncludeLine(place, line));
  }
  if (text.empty()) report(1, "is empty");
  return problems;
}

}  // namespace vornalux
