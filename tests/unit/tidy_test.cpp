// SPDX-License-Identifier: GPL-2.0-or-later
// Keeps the tree as docs/architecture.md draws it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "unit/tidy_rules.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

const std::string kLicence = "// SPDX-License-Identifier: GPL-2.0-or-later\n";

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

struct IncludeCase {
  const char* path;
  const char* line;
  bool allowed;
};

// Made-up files: a rule that lets these through keeps nothing.
TEST(Tidy, NoticesWhatIsForbidden) {
  constexpr IncludeCase kCases[] = {
      {"src/platform/a.h", "#include <cstdint>", true},
      {"src/platform/a.h", "#include \"platform/types.h\"", true},
      {"src/platform/a.h", "#include \"volume/movers.h\"", false},
      {"src/text/a.h", "#include \"platform/types.h\"", false},
      {"src/volume/a.cpp", "#include \"engine/engine.h\"", false},
      {"src/engine/a.cpp", "#include \"ui/defrag_window.h\"", false},
      {"src/engine/a.cpp", "#include \"forms/controls.h\"", false},
      {"src/forms/a.h", "#include \"volume/movers.h\"", false},
      {"src/ui/a.cpp", "#include \"health/temperatures.h\"", true},
      {"src/ui/a.cpp", "#include \"shell/verbs.h\"", false},
      {"src/health/a.cpp", "#include \"ui/defrag_window.h\"", false},
      {"src/shell/a.cpp", "#include \"app/program.h\"", false},
      {"src/app/a.cpp", "#include \"ui/defrag_window.h\"", true},
      {"src/app/a.cpp", "#include \"host/mounted/folder_tree.h\"", false},
      {"src/app/a.cpp", "#include <windows.h>", false},
      {"src/app/a.cpp", "#include <unistd.h>", false},
      {"src/app/a.cpp", "#include <sys/stat.h>", false},
      {"src/app/a.cpp", "#include <stdio.h>", false},
      {"src/app/a.cpp", "  #  include<fcntl.h> // sly", false},
      {"src/app/a.cpp", "#include \"../host/image/journal/journal.h\"", false},
      {"src/app/a.cpp", "#include \"platform/../host/image/journal/journal.h\"", false},
      {"src/app/a.cpp", "#include \"program.h\"", false},
      {"src/app/a.cpp", "#include <platform/types.h>", false},
      {"src/app/a.cpp", "#include SOME_HEADER", false},
      {"src/appendix/a.cpp", "int x;", false},
      {"src/host/image/opening/a.cpp", "#include <unistd.h>", true},
      {"src/host/image/fat/a.cpp", "#include <sys/stat.h>", false},
      {"src/host/image/journal/a.cpp", "#include <zlib.h>", true},
      {"src/host/image/journal/a.cpp", "#include \"host/image/device/block_device.h\"", true},
      {"src/host/image/journal/a.cpp", "#include \"host/image/volume/image_volume.h\"", false},
      {"src/host/image/cellar/a.cpp", "int x;", false},
      {"src/host/image/opening/a.cpp", "#include \"tests/x.h\"", false},
      {"src/host/terminal/live/a.cpp", "#include \"host/terminal/user/console.h\"", false},
      {"src/host/terminal/main.cpp", "#include \"host/terminal/user/console.h\"", true},
      {"src/host/mounted/a.cpp", "#include \"platform/files.h\"", true},
      {"src/host/mounted/a.cpp", "#include <unistd.h>", false},
      {"src/host/mounted/a.cpp", "#include \"host/image/journal/journal.h\"", false},
      {"src/host/simulated/a.cpp", "#include \"host/mounted/mounted_volume.h\"", true},
      {"tests/unit/a.cpp", "#include <unistd.h>", true},
  };
  for (const IncludeCase& c : kCases) {
    const std::vector<std::string> problems =
        CheckSourceFile(c.path, kLicence + "#pragma once\n" + c.line + "\n");
    EXPECT_EQ(problems.empty(), c.allowed) << c.path << ": " << c.line;
  }
}

TEST(Tidy, NoticesAMissingLicenceLine) {
  for (const char* path : {"src/ui/a.h", "tests/unit/a.cpp", "tools/check/a.cpp"}) {
    EXPECT_EQ(CheckSourceFile(path, kLicence).size(), 0u) << path;
    EXPECT_EQ(CheckSourceFile(path, "#pragma once\n" + kLicence).size(), 1u) << path;
    EXPECT_EQ(CheckSourceFile(path, "").size(), 1u) << path;
  }
}

}  // namespace
}  // namespace vornalux
