// SPDX-License-Identifier: GPL-2.0-or-later
// What reaches the user's terminal: text from volumes that nobody vouches for, and the screens made
// of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "host/terminal/display/display_text.h"
#include "host/terminal/live/live_frame.h"
#include "host/terminal/live/map_grid.h"
#include "support/seed.h"

namespace vornalux {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const Charset kSetUp = SetUpCharset();
constexpr Charset kBoth[] = {Charset::Ascii, Charset::Utf8};

// Bytes that mean something to a decoder, a terminal or a width table, in any order.
std::string Nasty(SeededRandom& random) {
  static std::vector<std::string> pieces = {std::string(1, '\0')};
  static std::istringstream list(
      "a|C:\\|name.txt|\x1b[2J|\x07|\r|\n|\x7f|\xC2\x9B|\xE4\xB8\xAD|\xF0\x9F\x98\x80|e\xCC\x81|"
      "\xED\xA0\x80|\xC0\xAF|\xF8|\xE2\x80\xAE|\xE2\x81\xA9|\xE2\x80\xA8|\xF4\x90\x80\x80|"
      "\xE4\xB8");
  for (std::string piece; std::getline(list, piece, '|');) pieces.push_back(piece);
  std::string text;
  for (auto count = random() % 30; count > 0; --count) {
    text += random() % 4 == 0 ? std::string(1, static_cast<char>(random()))
                              : pieces[random() % pieces.size()];
  }
  return text;
}

void ExpectHarmless(const std::string& text, Charset charset) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    EXPECT_TRUE(byte >= 0x20 && byte != 0x7F) << "byte " << int{byte} << " in " << text;
    EXPECT_TRUE(charset == Charset::Utf8 || byte < 0x7F) << text;
  }
  for (const char* steering : {"\xC2\x9B", "\xE2\x80\xAE", "\xE2\x81\xA9", "\xED\xA0\x80"}) {
    EXPECT_EQ(text.find(steering), std::string::npos) << text;
  }
  EXPECT_EQ(PrintableText(text, charset), text);
}

// Without our own attributes and colours.
std::string Bare(const std::string& line) {
  static const std::regex kAttributes("\x1b\\[[0-9;]*m");
  return std::regex_replace(line, kAttributes, "");
}

void ExpectFits(const ScreenLines& lines, ScreenSize size, Charset charset) {
  EXPECT_LE(std::ssize(lines), size.rows);
  for (const std::string& line : lines) {
    const std::string bare = Bare(line);
    ExpectHarmless(bare, charset);
    EXPECT_LT(DisplayWidth(bare, charset), size.columns);
    if (bare != line) {
      EXPECT_EQ(line.rfind("\x1b[0m"), line.rfind('\x1b')) << "attributes stay on: " << line;
    }
  }
}

// A window with all kinds of colours, and everything else as given.
LiveState SomeState(const std::string& text, std::int64_t done, std::int64_t total) {
  LiveState state;
  state.caption = state.item = state.temperature = text;
  state.map = {map_colour::kFree,   map_colour::kUsed,     map_colour::kMftZone,   map_colour::kMft,
               map_colour::kDefrag, map_colour::kOptimize, map_colour::kSystemArea};
  state.legend.density = {{map_colour::kFree, false, 0, "free"},
                          {map_colour::kMftZone, true, map_colour::kMft, "MFT (area)"}};
  state.legend.candidates_caption = "candidate for:";
  state.legend.candidates = {{map_colour::kDefrag, false, 0, "defrag"}};
  state.progress = {.done = done, .total = total, .left = seconds(3725)};
  state.bytes_moved = 5 << 20;
  state.max_rate = 20 << 20;
  return state;
}

TEST(TerminalText, NothingFromAVolumeSteersTheTerminal) {
  test::TestRandom random;
  const FileTable table;
  const RunFlags flags;
  for (int round = 0; round < 1000; ++round) {
    const std::string nasty = Nasty(random);
    const auto columns = static_cast<int>(random() % 50);
    const ScreenSize size = {static_cast<int>(1 + random() % 120),
                             static_cast<int>(1 + random() % 30)};
    LiveState state = SomeState(nasty, static_cast<std::int64_t>(random() % 12) - 1,
                                static_cast<std::int64_t>(random() % 10));
    state.message = random() % 2 == 0 ? nasty : "";
    state.question = random() % 2 == 0 ? nasty : "";
    if (random() % 2 == 0) state.warning = {nasty, nasty, nasty, {nasty, "&" + nasty}};
    FragmentLists lists;
    for (int i = 0; i < 20; ++i) lists.Add(nasty, 2);
    FrmDetails details(table, lists, flags);
    details.Command1.Click();
    for (const Charset charset : kBoth) {
      ExpectHarmless(PrintableText(nasty, charset), charset);
      for (const std::string& cut :
           {ShortenedText(nasty, columns, charset), CutText(nasty, columns, charset)}) {
        ExpectHarmless(cut, charset);
        EXPECT_LE(DisplayWidth(cut, charset), columns);
      }
      for (const ColourDepth depth : {ColourDepth::None, ColourDepth::Indexed, ColourDepth::Full}) {
        ExpectFits(ComposeMain(state, size, {charset, depth}), size, charset);
        ExpectFits(ComposeDetails(details, 3, state.question, size, {charset, depth}), size,
                   charset);
      }
    }
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(TerminalText, ALowScreenKeepsWhatMattersMost) {
  LiveState state = SomeState("C:\\file", 1, 4);
  state.question = "Paused ... Are you sure?";
  const std::string bar = std::string(6, '#') + std::string(19, '-');
  const ScreenLines lines = ComposeMain(state, {80, 4}, {Charset::Ascii, ColourDepth::None});
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0], " \x1b[1mVornalux\x1b[0m  C:\\file");
  EXPECT_EQ(Bare(lines[1]).find_first_not_of(" .#zMDOS"), std::string::npos) << lines[1];
  EXPECT_EQ(Bare(lines[2]), " " + bar + "  25%   5 MiB moved, at most 20 MiB/s   1:02:05 left");
  EXPECT_EQ(Bare(lines[3]), "  Paused ... Are you sure?   y Yes  n No");

  state.question.clear();
  state.warning = {"Too hot", "58\xC2\xB0\x43", "Waits.", {"&Go on", "Sto&p"}};
  std::string low;
  for (const std::string& line : ComposeMain(state, {24, 4}, {Charset::Ascii, ColourDepth::None})) {
    low += Bare(line) + "\n";
  }
  EXPECT_TRUE(
      low.starts_with(" | 58C   Too hot     |\n | g  Go on          |\n | p  Stop           |\n"))
      << low;
  EXPECT_EQ(std::ranges::count(low, '\n'), 4);
}

std::string Grid(const MapColumns& columns, MapGrid grid, Look look) {
  std::string rows;
  for (int row = 0; row < grid.rows; ++row) {
    StyledLine line(look, 80);
    AddMapRow(line, columns, grid, row, look);
    rows += line.Finish() + (row + 1 < grid.rows ? "\n" : "");
  }
  return rows;
}

TEST(MapGrid, PlacesShowTheirMostTellingColumn) {
  const MapColumns columns = {map_colour::kFree, map_colour::kMft,    map_colour::kUsed,
                              map_colour::kUsed, map_colour::kDefrag, map_colour::kOptimize};
  constexpr Look kSigns = {Charset::Ascii, ColourDepth::None};
  EXPECT_EQ(Grid(columns, {6, 1}, kSigns), ".M##DO");
  EXPECT_EQ(Grid(columns, {3, 1}, kSigns), "M#D");
  EXPECT_EQ(Grid(columns, {3, 2}, kSigns), ".M#\n#DO");
  EXPECT_EQ(Grid(columns, {4, 3}, kSigns), "..MM\n####\nDDOO");
  EXPECT_EQ(Grid({map_colour::kFree, map_colour::kUsed}, {1, 1}, kSigns), "+") << "the mean";
  EXPECT_EQ(Grid({0x00FE00, 0x004100}, {2, 1}, kSigns), "*-") << "nearly is not wholly";
  // The letter can be read on its colour.
  EXPECT_EQ(Grid(columns, {3, 1}, {Charset::Utf8, ColourDepth::Full}),
            "\x1b[38;2;0;0;0;48;2;192;192;0mM\x1b[0m\x1b[48;2;0;255;0m \x1b[0m"
            "\x1b[38;2;255;255;255;48;2;255;0;0mD\x1b[0m");
  EXPECT_EQ(Grid({map_colour::kUsed}, {1, 1}, {Charset::Ascii, ColourDepth::Indexed}),
            "\x1b[48;5;46m \x1b[0m");
}

// What stands on the screen at any size: all that can be chosen, the whole legend, each sign of
// which the map explains, and a map that takes the room that there is.
TEST(MapGrid, FillsScreensOfAllSizesWithItsLegend) {
  LiveState state = SomeState("C:\\file", 1, 4);
  state.caption = "Defragmenting volume C:\\";
  state.image = "/home/somebody/images/a rather long name of a volume.img";
  state.place = "2 of 3";
  state.legend.density.insert(state.legend.density.begin() + 1,
                              {map_colour::kUsed, false, 0, "used"});
  state.legend.candidates.push_back({map_colour::kOptimize, false, 0, "optimize"});
  state.legend.candidates.push_back({map_colour::kSystemArea, false, 0, "sys area"});
  for (const Charset charset : kBoth) {
    for (const ColourDepth depth : {ColourDepth::None, ColourDepth::Full}) {
      for (const ScreenSize size : {ScreenSize{40, 12}, {80, 24}, {132, 43}, {60, 60}, {200, 60}}) {
        for (const char* question : {"", "Paused ... Are you sure?"}) {
          state.question = question;
          const ScreenLines lines = ComposeMain(state, size, {charset, depth});
          ExpectFits(lines, size, charset);
          EXPECT_EQ(std::ssize(lines), size.rows);
          std::string all;
          std::ptrdiff_t map = 0;
          for (const std::string& line : lines) {
            const std::string bare = Bare(line);
            all += bare + "\n";
            map += DisplayWidth(bare, charset) == size.columns - 2 ? 1 : 0;
          }
          SCOPED_TRACE(all);
          for (const char* part : {"Defragmenting volume C:\\", "2 of 3", ".img"}) {
            EXPECT_NE(all.find(part), std::string::npos) << part;
          }
          const bool low = size.rows < 20;
          EXPECT_GE(map, low ? 3 : size.rows - 15);
          for (const char* part : *question == '\0' ? std::vector{"q Exit", "s Stop"}
                                                    : std::vector{question, "y Yes  n No"}) {
            EXPECT_NE(all.find(part), std::string::npos) << part;
          }
          if (low && *question != '\0') continue;
          for (const char* part : {"free", "used", "MFT (area)", "candidate for:", "defrag",
                                   "optimize", "sys area", "D", "O", "S", "M", "z"}) {
            EXPECT_NE(all.find(part), std::string::npos) << part;
          }
        }
      }
    }
  }
}

// Whatever size the volume and the screen have, all of the volume is on the map.
TEST(MapGrid, NoClusterIsLeftOff) {
  for (const std::int64_t clusters :
       {1, 7, 8, 355, 2847, 4095, 16383, 262144, 1000003, 268435455}) {
    for (const std::int64_t places : {1, 37, 394, 3600, 9800}) {
      const std::int64_t bytes = clusters / 8 + 1;
      const std::int64_t width = MapWidthFor(clusters, places);
      ASSERT_GE(width, 1);
      EXPECT_LE(width, places);
      const std::int64_t each = bytes / width;  // as the map has it
      EXPECT_LT(bytes - width * each, each + (each == 1 ? 1 : 0)) << clusters << " " << places;
    }
  }
}

TEST(MapGrid, ColoursFollowTheTerminal) {
  EXPECT_EQ(DepthOf("xterm-256color", nullptr), ColourDepth::Indexed);
  EXPECT_EQ(DepthOf("xterm", "truecolor"), ColourDepth::Full);
  EXPECT_EQ(DepthOf("screen", ""), ColourDepth::Indexed);
  for (const char* term : {"vt100", "xterm-mono"}) {
    EXPECT_EQ(DepthOf(term, nullptr), ColourDepth::None) << term;
  }
  for (const char* none : {"dumb", ""}) {
    EXPECT_EQ(DepthOf(none, "truecolor"), std::nullopt);
  }
  EXPECT_EQ(DepthOf(nullptr, "truecolor"), std::nullopt);
}

TEST(TerminalText, ShortensInTheMiddleByColumns) {
  for (const auto& [text, columns, charset, expected] :
       {std::tuple{"C:\\folder\\file.txt", 18, Charset::Utf8, "C:\\folder\\file.txt"},
        {"C:\\folder\\file.txt", 13, Charset::Utf8, "C:\\\xE2\x80\xA6\\file.txt"},
        {"C:\\folder\\file.txt", 15, Charset::Ascii, "C:\\...\\file.txt"},
        // Two columns each: four of the five characters do not fit beside the gap.
        {"\xE4\xB8\x80\xE4\xB8\x81\xE4\xB8\x83\xE4\xB8\x8D\xE4\xB8\x8E", 6, Charset::Utf8,
         "\xE2\x80\xA6\xE4\xB8\x8D\xE4\xB8\x8E"},
        {"abcdef", 1, Charset::Utf8, ""},
        {"abcdef", 0, Charset::Ascii, ""}}) {
    EXPECT_EQ(ShortenedText(text, columns, charset), expected) << text << columns;
  }
  EXPECT_EQ(PrintableLines("one\r\ntwo\nthree\rfour\x1b", Charset::Ascii), "one\ntwo\nthree?four?");
}

TEST(RunProgress, PercentIsRoundedDownAndOnlyKnownWithATotal) {
  for (const auto& [done, total, percent] : {std::tuple{999, 1000, 99}, {7, 7, 100}, {9, 7, 100}}) {
    EXPECT_EQ(Percent({.done = done, .total = total, .left = {}}), percent);
  }
  EXPECT_EQ(Percent({.done = 0, .total = 0, .left = {}}), std::nullopt);
}

TEST(RunProgress, TimeLeftFollowsTheRateOfThisRangeOnly) {
  const TimePoint start;
  TimeLeft left;
  EXPECT_EQ(left.Update(start, 0, 100), std::nullopt);
  EXPECT_EQ(left.Update(start + seconds(1), 50, 100), std::nullopt) << "too early to tell";
  EXPECT_EQ(left.Update(start + seconds(10), 50, 100), seconds(10));
  EXPECT_EQ(left.Update(start + seconds(30), 75, 100), seconds(10));
  // A second range starts at 20: its first steps count, not what the clock said before.
  EXPECT_EQ(left.Update(start + seconds(31), 20, 220), std::nullopt);
  EXPECT_EQ(left.Update(start + seconds(41), 120, 220), seconds(10));
  EXPECT_EQ(left.Update(start + seconds(42), 10, 220), std::nullopt) << "gone back";
}

}  // namespace
}  // namespace vornalux
