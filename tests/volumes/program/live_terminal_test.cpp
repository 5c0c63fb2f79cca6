// SPDX-License-Identifier: GPL-2.0-or-later
// The live view in a real terminal, whose keyboard and screen are tmux's.
#include <signal.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/intact.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

// Enough work for several ticks of the view, in every phase.
constexpr const char* kRecipe =
    "ntfs size=256M files=4000 folders=150 fragmented=90% pieces=8 fill=75% odd-names=0";
constexpr auto kPatience = std::chrono::seconds(60);

class LiveTerminalTest : public ImageFolder {
 protected:
  void SetUp() override {
    recipe_ = kRecipe + std::string(" seed=") + std::to_string(TestSeed());
    manifest_ = MakeVolume(recipe_, Path("disk.img"));
    Tmux(
        "-f /dev/null new-session -d -x 90 -y 24 env TERM=xterm-256color COLORTERM=truecolor "
        "LC_ALL=C.UTF-8 PS1='> ' HISTFILE= bash --norc --noprofile -i");
    Type("'cd " + Path("") + "; stty -g >before; clear' Enter");
  }
  void TearDown() override {
    std::system(("tmux -S '" + Path("socket") + "' kill-server").c_str());
  }

  std::string Tmux(const std::string& command) const {
    const std::string line = "tmux -S '" + Path("socket") + "' " + command + " 2>&1";
    FILE* pipe = popen(line.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe)) {
      output.append(buffer.data(), count);
    }
    if (pclose(pipe) != 0) throw std::runtime_error(line + ": " + output);
    return output;
  }
  void Type(const std::string& keys) const { Tmux("send-keys " + keys); }
  std::string Screen() const { return Tmux("capture-pane -p"); }

  // The screen once it shows the text. Throws when it never does.
  std::string ScreenWith(const std::string& text) const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::string screen;
    do {
      screen = Screen();
      if (screen.find(text) != std::string::npos) return screen;
    } while (std::chrono::steady_clock::now() < end);
    throw std::runtime_error(recipe_ + ": never shown: " + text + "\n" + screen);
  }

  void Start(const std::string& command) const {
    Type("'" VORNALUX_PROGRAM " " + command + " disk.img; echo END $?' Enter");
  }
  // A run that has begun to move files, paused by the Stop box.
  void StartAndPause() const {
    // A disk slow enough for keys to find the run at work.
    Type("'export LD_PRELOAD=" VORNALUX_KILL_LIBRARY
         " ASAN_OPTIONS=verify_asan_link_order=0 VORNALUX_PAUSE=2000; clear' Enter");
    Start("defrag");
    ScreenWith("Defragmenting volume C:");
    Type("s");
    ScreenWith("Paused ... Are you sure?   y Yes  n No");
  }

  // The shell's only child.
  pid_t RunningProgram() const {
    const std::string shell = std::to_string(std::stoi(Tmux("display-message -p '#{pane_pid}'")));
    pid_t child = -1;
    std::ifstream("/proc/" + shell + "/task/" + shell + "/children") >> child;
    return child;
  }

  void ExpectTerminalGivenBack() const {
    EXPECT_EQ(Tmux("display-message -p '#{alternate_on} #{cursor_flag}'"), "0 1\n");
    Type("'clear; stty -g | cmp - before && echo SA\"\"ME' Enter");
    ScreenWith("SAME");
  }

  void ExpectWhole() const {
    SCOPED_TRACE(recipe_);
    ExpectIntact(Path("disk.img"), manifest_);
  }

  std::string recipe_;
  Manifest manifest_;
};

TEST_F(LiveTerminalTest, KeysResizeAndTheEndOfARun) {
  StartAndPause();
  std::string screen = ScreenWith("candidate for:");
  for (const char* part :
       {" Vornalux  Defragmenting", "free", "MFT (area)", "sys area", "C:\\", "%", "temp N/A"}) {
    EXPECT_NE(screen.find(part), std::string::npos) << part << "\n" << screen;
  }
  EXPECT_NE(Tmux("capture-pane -p -e").find("\x1b[48;2;"), std::string::npos);

  // No; the details; Stop again from there. The run stands still in the box all the time.
  Type("n d s");
  screen = ScreenWith("View details");
  ScreenWith("Are you sure?");
  EXPECT_NE(screen.find("Fragmented files"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("Defragmenting"), std::string::npos) << screen;
  Tmux("resize-window -x 50 -y 9");
  screen = ScreenWith(" 1 - 4 of ");
  EXPECT_NE(screen.find("Are you sure?"), std::string::npos) << screen;

  Tmux("resize-window -x 120 -y 40");
  Type("n d q s");
  ScreenWith("Vornalux  Defragmenting");
  ScreenWith("Are you sure?");
  Type("y");
  screen = ScreenWith("END 4");
  EXPECT_NE(screen.find("vornalux: Stopped."), std::string::npos) << screen;
  EXPECT_NE(screen.find("; stopped"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("Quit current operation"), std::string::npos) << screen;
  ExpectTerminalGivenBack();
  ExpectWhole();
}

TEST_F(LiveTerminalTest, SuspendedAndKilledItGivesTheTerminalBack) {
  StartAndPause();
  Type("C-z");
  ScreenWith("Stopped");
  ExpectTerminalGivenBack();
  Type("'fg' Enter");
  ScreenWith("Are you sure?");
  EXPECT_EQ(Tmux("display-message -p '#{alternate_on}'"), "1\n");
  const pid_t program = RunningProgram();
  ASSERT_GT(program, 0);
  kill(program, SIGABRT);  // sanitizers leave this one alone
  ScreenWith("Aborted");
  ExpectTerminalGivenBack();
  Start("analyze");
  ScreenWith("END 0");
  ExpectTerminalGivenBack();
  ExpectWhole();
}

// Ctrl-C comes at the fourth write, in the middle of the only file that there is to move.
TEST_F(LiveTerminalTest, CtrlCInsideALargeFileIsAnsweredThere) {
  recipe_ =
      "ntfs size=1G files=1 folders=0 big=1 fragmented=100% seed=" + std::to_string(TestSeed());
  manifest_ = MakeVolume(recipe_, Path("disk.img"));
  Type("'export LD_PRELOAD=" VORNALUX_KILL_LIBRARY
       " ASAN_OPTIONS=verify_asan_link_order=0 VORNALUX_KILL_AT=4 VORNALUX_SIGNAL=2' Enter");
  for (const bool stops : {true, false}) {
    Start("defrag");
    const std::string screen = ScreenWith("Paused ... Are you sure?   y Yes  n No");
    EXPECT_NE(screen.find("C:\\big 0.iso"), std::string::npos) << screen;
    EXPECT_NE(screen.find(" MiB moved"), std::string::npos) << screen;
    Type(stops ? "y" : "n");
    ScreenWith(stops ? "END 4" : "END 0");
    Type("clear Enter");
  }
  ExpectWhole();
}

TEST_F(LiveTerminalTest, PlainLinesOnRequest) {
  for (const char* how : {"--quiet", "NO_COLOR", "pipe"}) {
    const std::string kind = how;
    if (kind == "NO_COLOR") Type("'export NO_COLOR=1' Enter");
    if (kind == "pipe") Type("'unset NO_COLOR' Enter");
    Type("'" VORNALUX_PROGRAM " compact --dry-run disk.img " + (kind == "--quiet" ? kind : "") +
         (kind == "pipe" ? " 2>&1 >/dev/null | cat" : " >/dev/null") + "; echo EN\"\"D" + kind +
         "' Enter");
    // The live view would have taken its lines along.
    const std::string screen = ScreenWith("END" + kind);
    EXPECT_EQ(screen.find("Compacting volume C:\\\n") != std::string::npos, kind != "--quiet")
        << screen;
    Type("'clear' Enter");
  }
}

}  // namespace
}  // namespace vornalux::test
