// SPDX-License-Identifier: GPL-2.0-or-later
// The two programs, as scripts use them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "maker_editor.h"
#include "support/image_folder.h"

namespace vornalux {
namespace {

class ProgramsTest : public test::ImageFolder {
 protected:
  // The exit status; what was printed is in Output().
  int Exit(const std::string& command) {
    const int status =
        std::system(("cd '" + Path("") + "' && " + command + " >printed 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int Make(const std::string& words) { return Exit(VORNALUX_MKVOLUME " " + words); }
  int Check(const std::string& words) { return Exit(VORNALUX_CHECK " " + words); }
  std::string Output() const {
    const test::Bytes bytes = Get("printed");
    return {bytes.begin(), bytes.end()};
  }
  bool Printed(const std::string& words) const { return Output().find(words) != std::string::npos; }
};

TEST_F(ProgramsTest, MakeThenCheck) {
  ASSERT_EQ(Make("v.img --manifest m.txt fat16 size=20M files=40 seed=9"), 0) << Output();
  EXPECT_TRUE(Printed("seed=9"));
  EXPECT_EQ(Check("v.img --manifest m.txt"), 0) << Output();
  EXPECT_TRUE(Printed("clean"));
  EXPECT_EQ(Check("v.img --write-manifest again.txt"), 0);
  EXPECT_EQ(Check("v.img --manifest again.txt"), 0) << Output();

  ASSERT_EQ(Make("other.img fat16 size=20M files=40 seed=10"), 0);
  EXPECT_EQ(Check("other.img --manifest m.txt"), 1);
  EXPECT_TRUE(Printed("missing: "));
  EXPECT_TRUE(Printed("unexpected: "));
}

TEST_F(ProgramsTest, DamageAndDirtinessFail) {
  ASSERT_EQ(Make("v.img ntfs size=8M files=20"), 0) << Output();
  std::vector<std::uint8_t> image = test::LoadFile(Path("v.img"));
  image[image.size() - 400] ^= 1;
  Put("v.img", image);
  EXPECT_EQ(Check("v.img"), 1);
  EXPECT_TRUE(Printed("backup boot sector differs"));

  ASSERT_EQ(Make("v.img fat12 size=4M files=20"), 0);
  image = test::LoadFile(Path("v.img"));
  image[37] |= 1;
  Put("v.img", image);
  EXPECT_EQ(Check("v.img"), 1);
  EXPECT_TRUE(Printed("marked dirty"));
  EXPECT_EQ(Check("v.img --allow-dirty"), 0);
}

TEST_F(ProgramsTest, AVolumeInsideADisk) {
  ASSERT_EQ(Make("d.img fat32 size=40M files=20 partitioned=1"), 0) << Output();
  EXPECT_EQ(Check("d.img"), 1);
  EXPECT_TRUE(Printed("neither NTFS nor FAT"));
  EXPECT_EQ(Check("d.img --partition 1M"), 0) << Output();
}

TEST_F(ProgramsTest, WhatCannotBeDoneIsSaid) {
  EXPECT_EQ(Check("absent.img"), 2);
  EXPECT_TRUE(Printed("absent.img: No such file"));
  ASSERT_EQ(Make("v.img fat12 size=4M files=5"), 0);
  EXPECT_EQ(Check("v.img --manifest absent.txt"), 2);
  EXPECT_EQ(Check("--nonsense"), 2);
  EXPECT_EQ(Make("v.img fat12 size=4M files=many"), 1);
  EXPECT_TRUE(Printed("files=many"));
  EXPECT_EQ(Make("no/such.img fat12"), 1);
  EXPECT_TRUE(Printed("no/such.img"));
}

}  // namespace
}  // namespace vornalux
