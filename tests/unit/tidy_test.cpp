// SPDX-License-Identifier: GPL-2.0-or-later
// Keeps the tree as docs/architecture.md draws it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace vornalux {
namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

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
    // Those of the C++ library have neither an extension nor a folder.
    if (name.find_first_of("./") == std::string::npos || MayUse(place, name)) return "";
    return "<" + name + "> is no header of the C++ library";
  }
  const std::string& folder = place.folder;
  const Place included = PlaceOf("src/" + name);
  if (included.folder == folder && FloorOf(included) > FloorOf(place)) {
    return "\"" + name + "\" stands above " + folder + "/" + place.room + "/";
  }
  const Names allowed = AllowedFolders(folder);
  const bool known = std::any_of(allowed.begin(), allowed.end(), [&](const std::string& other) {
    return name.starts_with(other + "/");
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

// What is wrong with a file of the tree: "path:line: why" for each finding.
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

std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Tidy, TreeKeepsItsIncludeDirectionAndLicence) {
  const fs::path root = VORNALUX_SOURCE_DIR;
  std::size_t files = 0;
  for (const char* folder : {"src", "tests", "tools", "bench"}) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / folder)) {
      const fs::path& path = entry.path();
      if (path.extension() != ".h" && path.extension() != ".cpp") continue;
      ++files;
      const std::string name = fs::relative(path, root).generic_string();
      for (const std::string& problem : CheckSourceFile(name, ReadText(path))) {
        ADD_FAILURE() << problem;
      }
    }
  }
  EXPECT_GT(files, 100u) << "is this the tree?";
}

// One of its own, or for a room in a larger folder a line in that one's.
TEST(Tidy, EachSourceFolderIsDescribed) {
  const fs::path source = fs::path(VORNALUX_SOURCE_DIR) / "src";
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(source)) {
    if (!entry.is_directory() || entry.path() == source / "host") continue;
    if (fs::exists(entry.path() / "README.md")) continue;
    const std::string outer = ReadText(entry.path().parent_path() / "README.md");
    const std::string room = "`" + entry.path().filename().string() + "/`";
    EXPECT_NE(outer.find("| " + room + " |"), std::string::npos) << entry.path();
  }
}

// Made-up files: a rule that lets these through keeps nothing.
TEST(Tidy, NoticesWhatIsForbidden) {
  struct Case {
    const char* path;
    const char* line;
    bool allowed;
  };
  constexpr Case kCases[] = {
      {"src/platform/a.h", "#include <cstdint>", true},
      {"src/platform/a.h", "#include \"volume/movers.h\"", false},
      {"src/engine/a.cpp", "#include \"forms/controls.h\"", false},
      {"src/ui/a.cpp", "#include \"health/temperatures.h\"", true},
      {"src/app/a.cpp", "#include <windows.h>", false},
      {"src/app/a.cpp", "#include <sys/stat>", false},
      {"src/app/a.cpp", "  #  include<fcntl.h> // sly", false},
      {"src/app/a.cpp", "#include \"../host/image/journal/journal.h\"", false},
      {"src/app/a.cpp", "#include \"platform/../host/image/journal/journal.h\"", false},
      {"src/app/a.cpp", "#include \"program.h\"", false},
      {"src/app/a.cpp", "#include SOME_HEADER", false},
      {"src/appendix/a.cpp", "int x;", false},
      {"src/host/image/opening/a.cpp", "#include <unistd.h>", true},
      {"src/host/image/fat/a.cpp", "#include <sys/stat.h>", false},
      {"src/host/image/journal/a.cpp", "#include <zlib.h>", true},
      {"src/host/image/journal/a.cpp", "#include \"host/image/device/block_device.h\"", true},
      {"src/host/image/journal/a.cpp", "#include \"host/image/volume/image_volume.h\"", false},
      {"src/host/image/cellar/a.cpp", "int x;", false},
      {"src/host/terminal/main.cpp", "#include \"host/terminal/user/console.h\"", true},
      {"src/host/mounted/a.cpp", "#include <unistd.h>", false},
      {"src/host/mounted/a.cpp", "#include \"host/image/journal/journal.h\"", false},
      {"src/host/simulated/a.cpp", "#include \"host/mounted/mounted_volume.h\"", true},
      {"tests/unit/a.cpp", "#include <unistd.h>", true},
  };
  const std::string licence = "// SPDX-License-Identifier: GPL-2.0-or-later\n";
  for (const Case& c : kCases) {
    const std::string text = licence + "#pragma once\n" + c.line + "\n";
    EXPECT_EQ(CheckSourceFile(c.path, text).empty(), c.allowed) << c.path << ": " << c.line;
  }
  for (const char* path : {"src/ui/a.h", "tests/unit/a.cpp"}) {
    EXPECT_EQ(CheckSourceFile(path, "#pragma once\n" + licence).size(), 1u) << path;
    EXPECT_EQ(CheckSourceFile(path, "").size(), 1u) << path;
  }
}

}  // namespace
}  // namespace vornalux
