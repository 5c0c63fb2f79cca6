// SPDX-License-Identifier: GPL-2.0-or-later
// The real program, killed at every event of a small run, while another volume stands in the place
// of its own: a backup that was restored, or a clone on another device. The stranger keeps every
// byte, and the run's own volume is made whole when it comes back.
#include <filesystem>

#include "crash/kill_rig.h"
#include "support/loop_device.h"

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class StrangerTest : public VolumeAndCopies, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    Make(GetParam());
    pristine_ = Get("volume.img");
  }

  static Arguments Defrag(const std::string& volume) { return {"defrag", volume, "--quiet"}; }
  static Arguments Analyze(const std::string& volume) { return {"analyze", volume, "--quiet"}; }

  Bytes pristine_;
};

TEST_P(StrangerTest, ARestoredBackupIsLeftAlone) {
  Copy();
  const std::size_t events = CountEvents(Defrag(Path("work.img")), Path("count")).events;
  ASSERT_GT(events, 20U);
  int refused = 0;
  for (std::size_t event = 1; event <= events; ++event) {
    SCOPED_TRACE(Where("killed in event ", event, events));
    Copy();
    RunKilledAt(event, Defrag(Path("work.img")));
    fs::rename(Path("work.img"), Path("killed.img"));
    Copy();
    const ProgramEnd look = RunProgram(Analyze(Path("work.img")));
    EXPECT_EQ(look.code, 0) << look.err;
    EXPECT_TRUE(Get("work.img") == pristine_) << "looked at: " << look.err;
    const ProgramEnd pass = RunProgram(Defrag(Path("work.img")));
    if (pass.code == 3) {
      ++refused;
      EXPECT_NE(pass.err.find("delete the journal"), std::string::npos) << pass.err;
      EXPECT_NE(look.err.find("delete the journal"), std::string::npos) << look.err;
      EXPECT_TRUE(Get("work.img") == pristine_);
    } else {
      // Nothing of the killed run had reached its volume, or all of it was done.
      EXPECT_EQ(pass.code, 0) << pass.err;
      ExpectIntact(Path("work.img"), manifest_);
    }
    fs::rename(Path("killed.img"), Path("work.img"));
    EXPECT_EQ(RunProgram(Analyze(Path("work.img"))).code, 0);
    ExpectIntact(Path("work.img"), manifest_);
    if (HasFailure()) return;
  }
  EXPECT_GT(refused, static_cast<int>(events) / 2);
}

// Two sticks that nothing tells apart, both worked on at once.
TEST_P(StrangerTest, AClonedDeviceIsLeftAlone) {
  const Setting state("VORNALUX_STATE_DIR", Path("state"));
  // Such a device names its backing file; that of a removed file is the same for both.
  const auto attach = [&](const std::string& kept) {
    Copy("stick");
    fs::create_hard_link(Path("stick"), Path(kept));
    auto device = std::make_unique<LoopDevice>(Path("stick"));
    fs::remove(Path("stick"));
    return device;
  };
  std::size_t events = 0;
  {
    const auto device = attach("counted");
    if (device->Node().empty()) GTEST_SKIP() << "no loop devices here";
    events = CountEvents(Defrag(device->Node()), Path("count")).events;
  }
  for (std::size_t event = 1; event <= events; ++event) {
    SCOPED_TRACE(Where("killed in event ", event, events));
    for (const char* const name : {"ours", "clone"}) fs::remove(Path(name));
    const auto ours = attach("ours");
    const auto clone = attach("clone");
    {
      std::unique_ptr<Program> run;
      {
        const Meddling meddling("VORNALUX_KILL_AT", std::to_string(event));
        const Setting halted("VORNALUX_SIGNAL", std::to_string(SIGSTOP));
        run = std::make_unique<Program>(Defrag(ours->Node()));
      }
      ASSERT_TRUE(run->WaitUntilHalted());
      const ProgramEnd look = RunProgram(Analyze(clone->Node()));
      EXPECT_EQ(look.code, 0) << look.err;
      EXPECT_TRUE(Get("clone") == pristine_);
      const ProgramEnd pass = RunProgram(Defrag(clone->Node()));
      EXPECT_TRUE(pass.code == 0 || pass.code == 3) << pass.err;
      if (pass.code == 3) {
        EXPECT_TRUE(Get("clone") == pristine_);
        EXPECT_NE(pass.err.find("in use by another run"), std::string::npos) << pass.err;
      }
      run->Signal(SIGKILL);
      run->Signal(SIGCONT);
      EXPECT_EQ(run->Wait().signal, SIGKILL);
    }
    EXPECT_EQ(RunProgram(Analyze(clone->Node())).code, 0);
    const ProgramEnd back = RunProgram(Analyze(ours->Node()));
    EXPECT_EQ(back.code, 0) << back.err;
    for (const char* const name : {"ours", "clone"}) ExpectIntact(Path(name), manifest_);
    EXPECT_TRUE(fs::is_empty(Path("state")));
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Runs, StrangerTest,
    testing::Values("ntfs size=8M files=12 fragmented=100% pieces=4 fill=60%",
                    "fat12 size=1M cluster=512 files=10 fragmented=100% pieces=4 fill=40%",
                    "fat16 size=4M cluster=512 files=10 fragmented=100% pieces=4 fill=20%",
                    "fat32 size=34M cluster=512 files=10 fragmented=100% pieces=4 fill=5%"),
    [](const auto& param) { return FileSystemOf(param.param); });

}  // namespace
}  // namespace vornalux::test
