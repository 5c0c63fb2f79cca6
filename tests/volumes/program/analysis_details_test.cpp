// SPDX-License-Identifier: GPL-2.0-or-later
// What an analysis tells besides its figures, against a foreign reading of the volume and against
// the runs that it foretells.
#include <cstdint>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "check/volume_check.h"
#include "support/made_volume.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class AnalysisDetailsTest : public MadeVolume {};

std::string ExtensionOf(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return extension;
}

TEST_F(AnalysisDetailsTest, TellWhatIsThereAndWhatRunsWouldDo) {
  for (const char* recipe : {"fat32 size=64M cluster=512 files=150 fragmented=60% fill=85%",
                             "ntfs size=32M files=250 folders=20 fragmented=60% fill=85%"}) {
    Make(recipe);
    SCOPED_TRACE(recipe_);
    ProgramEnd end = RunProgram({"analyze", image_, "--json", "--list", "--gains", "600"});
    ASSERT_EQ(end.code, 0) << end.err;
    const Json told = Json::parse(end.out);

    struct Row {
      std::int64_t files = 0;
      std::int64_t clusters = 0;
      std::int64_t fragmented = 0;
    };
    const CheckReport report = CheckVolume(image_);
    std::map<std::string, Row> expected;
    for (const CheckedItem& item : report.items) {
      const bool in_dots = item.path.find("/.") != std::string::npos &&
                           item.path.find('/', item.path.find("/.") + 1) != std::string::npos;
      if (item.is_folder || !item.stream.empty() || in_dots) continue;
      Row& row = expected[ExtensionOf(item.path)];
      ++row.files;
      for (const CheckedExtent& extent : item.extents) {
        row.clusters += extent.lcn >= 0 ? extent.count : 0;
      }
      row.fragmented += item.Fragments() > 1 ? 1 : 0;
    }
    EXPECT_EQ(told["extensions"].size(), expected.size());
    std::int64_t last = INT64_MAX;
    for (const Json& row : told["extensions"]) {
      const Row& other = expected[row["extension"]];
      EXPECT_EQ(row["files"], other.files) << row;
      EXPECT_EQ(row["bytes"], other.clusters * report.cluster_size) << row;
      EXPECT_EQ(row["fragmented"], other.fragmented) << row;
      EXPECT_LE(row["bytes"].get<std::int64_t>(), last);
      last = row["bytes"];
    }

    ASSERT_EQ(told["most_fragmented"].size(), 10U);
    for (std::size_t i = 0; i < 10; ++i) {
      EXPECT_EQ(told["most_fragmented"][i]["path"], told["fragmented_files"][i]["path"]);
    }

    ASSERT_EQ(told["gains"].size(), 5U);
    for (const Json& gain : told["gains"]) {
      SCOPED_TRACE(gain);
      std::istringstream words(gain["pass"].get<std::string>());
      Arguments line = {std::istream_iterator<std::string>(words), {}};
      end = RunProgram(And(line, {image_, "--json", "--dry-run"}));
      ASSERT_EQ(end.code, 0) << end.err;
      const Json run = Json::parse(end.out);
      EXPECT_EQ(gain["fragmented"], run["after"]["fragmented"]);
      EXPECT_EQ(gain["free_regions"], run["after"]["free_regions"]["count"]);
      EXPECT_EQ(gain["largest_gap"], run["after"]["free_regions"]["largest"][0]);
      EXPECT_EQ(gain["bytes_moved"], run["bytes_moved"]);
    }
    EXPECT_EQ(Get("disk.img"), before_);
    end = RunProgram({"analyze", image_, "--gains", "0"});
    EXPECT_EQ(end.out.find("passes would"), std::string::npos) << end.out;
    EXPECT_NE(end.out.find("By extension"), std::string::npos) << end.out;
  }
}

}  // namespace
}  // namespace vornalux::test
