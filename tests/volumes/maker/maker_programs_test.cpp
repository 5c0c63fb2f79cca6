// SPDX-License-Identifier: GPL-2.0-or-later
// The two programs, as scripts use them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "support/image_folder.h"

namespace vornalux {
namespace {

using ProgramsTest = test::ImageFolder;

TEST_F(ProgramsTest, ExitCodesAndOutput) {
  struct Step {
    std::string command;
    int exit;
    const char* printed;
  };
  const std::string make = VORNALUX_MKVOLUME " ";
  const std::string check = VORNALUX_CHECK " ";
  const Step steps[] = {
      {make + "v.img --manifest m.txt fat16 size=20M files=40 seed=9", 0, "seed=9"},
      {check + "v.img --manifest m.txt", 0, "clean"},
      {check + "v.img --write-manifest again.txt", 0, ""},
      {check + "v.img --manifest again.txt", 0, ""},
      {make + "v.img fat16 size=20M files=40 seed=10", 0, ""},
      {check + "v.img --manifest m.txt", 1, "missing: "},
      {check + "v.img --manifest m.txt", 1, "unexpected: "},
      {check + "v.img --manifest absent.txt", 2, ""},
      {make + "n.img ntfs size=8M files=20", 0, ""},
      {"printf x | dd of=n.img bs=1 seek=8388208 conv=notrunc", 0, ""},
      {check + "n.img", 1, "backup boot sector differs"},
      {make + "v.img fat12 size=4M files=20", 0, ""},
      {"printf '\\001' | dd of=v.img bs=1 seek=37 conv=notrunc", 0, ""},
      {check + "v.img", 1, "marked dirty"},
      {check + "v.img --allow-dirty", 0, ""},
      {make + "d.img fat32 size=40M files=20 partitioned=1", 0, ""},
      {check + "d.img", 1, "neither NTFS nor FAT"},
      {check + "d.img --partition 1M", 0, ""},
      {check + "absent.img", 2, "absent.img: No such file"},
      {check + "--nonsense", 2, ""},
      {make + "v.img fat12 size=4M files=many", 1, "files=many"},
      {make + "no/such.img fat12", 1, "no/such.img"},
      {make + "v.img fat12 size=1M files=3000 seed=7", 1, "too small"},
      {make + "v.img ntfs size=4M files=20000 seed=7", 1, "seed=7"},
      {make + "v.img ntfs size=4M files=20000", 1, "NTFS: cannot create"},
      {make + "v.img fat16 size=30M files=5000 folders=0", 1, "the folder takes 512"},
      {make + "v.img fat16 size=900M cluster=512", 1, "mkfs.fat failed"},
      {make + "v.img ntfs size=20M shredded=1:90000", 1, "too small"},
  };
  for (const Step& step : steps) {
    const std::string line = "cd '" + Path("") + "' && { " + step.command + "; } >printed 2>&1";
    const int status = std::system(line.c_str());
    const test::Bytes bytes = Get("printed");
    const std::string printed(bytes.begin(), bytes.end());
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, step.exit) << line << "\n" << printed;
    EXPECT_NE(printed.find(step.printed), std::string::npos) << line << "\n" << printed;
  }
}

}  // namespace
}  // namespace vornalux
