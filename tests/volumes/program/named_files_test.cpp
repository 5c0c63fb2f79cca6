// SPDX-License-Identifier: GPL-2.0-or-later
// `--file` on real volumes: nothing but the named files is counted and cured, and scripts are told.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "check/volume_check.h"
#include "support/made_volume.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class NamedFiles : public MadeVolume {
 protected:
  // Where everything lies, as another program reads it.
  std::map<std::string, std::vector<CheckedExtent>> Places() const {
    std::map<std::string, std::vector<CheckedExtent>> places;
    for (const CheckedItem& item : CheckVolume(image_).items) {
      places[item.path + ":" + item.stream] = item.extents;
    }
    return places;
  }
};

TEST_F(NamedFiles, AreCuredAloneAndScriptsAreTold) {
  for (const char* recipe : {"fat16 size=16M files=80 folders=10 fragmented=60% fill=60%",
                             "ntfs size=32M files=80 folders=10 fragmented=60% fill=60%"}) {
    for (const bool thorough : {false, true}) {
      Make(recipe);
      SCOPED_TRACE(recipe_);
      const Json all = Json::parse(RunProgram({"analyze", image_, "--json", "--list"}).out);
      std::vector<Json> listed = all["fragmented_files"];
      std::ranges::sort(listed, {}, [](const Json& file) { return file["clusters"].get<int>(); });
      const std::string first = listed[0]["path"];
      const std::string second = listed[1]["path"];
      const std::string other = "C:/" + second.substr(3);
      Put("list", Bytes(second.begin(), second.end()));
      const Arguments names = {image_, "--json", "--file", first, "--file", "-", "--file", other};
      const auto run = [&](Arguments line) {
        if (thorough && line.front() == "defrag") line.push_back("--thorough");
        return RunProgramBehind("<" + Path("list"), And(line, names));
      };
      const ProgramEnd looked = run({"analyze"});
      EXPECT_EQ(looked.code, 5) << looked.err;
      const Json found = Json::parse(looked.out);
      EXPECT_EQ(found["files"].size(), 2U);
      EXPECT_EQ(found["files"][1]["one_piece"], false);

      EXPECT_EQ(run({"defrag", "--file", "/no/such"}).code, 2);
      EXPECT_EQ(run({"defrag", "--file", "/$MFT"}).code, 2);
      EXPECT_EQ(RunProgramBehind("<" + Path(""), And({"defrag"}, names)).code, 2);
      EXPECT_EQ(Get("disk.img"), before_);

      const auto before = Places();
      const ProgramEnd end = run({"defrag"});
      EXPECT_EQ(end.code, 0) << end.err << end.out;
      int moved = 0;
      for (const auto& [path, extents] : Places()) moved += before.at(path) == extents ? 0 : 1;
      if (!thorough) {
        EXPECT_EQ(moved, 2);
      }
      EXPECT_GE(moved, 2);
      ExpectWhole();
      EXPECT_EQ(run({"analyze"}).code, 0);
      const Json after = Json::parse(RunProgram({"analyze", image_, "--json"}).out);
      EXPECT_EQ(after["fragmented"].get<int>(), all["fragmented"].get<int>() - 2);
    }
  }
}

}  // namespace
}  // namespace vornalux::test
