// SPDX-License-Identifier: GPL-2.0-or-later
// What reaches the user's terminal: text from volumes that nobody vouches for, and the progress
// line made of it.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "host/terminal/display_text.h"
#include "host/terminal/progress_line.h"
#include "support/seed.h"

namespace vornalux {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const Charset kSetUp = SetUpCharset();
constexpr Charset kBoth[] = {Charset::Ascii, Charset::Utf8};

// Bytes that mean something to a decoder, a terminal or a width table, in any order.
std::string Nasty(std::mt19937_64& random) {
  static const std::string kPieces[] = {"a",
                                        "C:\\",
                                        "name.txt",
                                        "\x1b[2J",
                                        "\x07",
                                        "\r",
                                        "\n",
                                        std::string(1, '\0'),
                                        "\x7f",
                                        "\xC2\x9B",
                                        "\xE4\xB8\xAD",
                                        "\xF0\x9F\x98\x80",
                                        "e\xCC\x81",
                                        "\xED\xA0\x80",
                                        "\xC0\xAF",
                                        "\xF8",
                                        "\xE2\x80\xAE",
                                        "\xE2\x81\xA9",
                                        "\xE2\x80\xA8",
                                        "\xF4\x90\x80\x80",
                                        "\xE4\xB8"};
  std::string text;
  for (auto count = random() % 30; count > 0; --count) {
    text += random() % 4 == 0 ? std::string(1, static_cast<char>(random()))
                              : kPieces[random() % std::size(kPieces)];
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

TEST(TerminalText, NothingFromAVolumeSteersTheTerminal) {
  const std::uint64_t seed = test::TestSeed();
  SCOPED_TRACE(test::SeedNote(seed));
  std::mt19937_64 random(seed);
  for (int round = 0; round < 2000; ++round) {
    const std::string nasty = Nasty(random);
    const auto columns = static_cast<int>(random() % 50);
    for (const Charset charset : kBoth) {
      ExpectHarmless(PrintableText(nasty, charset), charset);
      const std::string shortened = ShortenedText(nasty, columns, charset);
      ExpectHarmless(shortened, charset);
      EXPECT_LE(DisplayWidth(shortened, charset), columns);
      const ProgressState state = {.phase = "Defragmenting " + nasty.substr(0, 9),
                                   .item = nasty,
                                   .done = static_cast<std::int64_t>(random() % 12) - 1,
                                   .total = static_cast<std::int64_t>(random() % 10),
                                   .left = seconds(random() % 100000)};
      const std::string line = ProgressText(state, columns, charset);
      ExpectHarmless(line, charset);
      EXPECT_LE(DisplayWidth(line, charset), columns);
    }
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(TerminalText, ShortensInTheMiddleByColumns) {
  struct Case {
    const char* text;
    int columns;
    Charset charset;
    const char* expected;
  };
  constexpr Case kCases[] = {
      {"C:\\folder\\file.txt", 18, Charset::Utf8, "C:\\folder\\file.txt"},
      {"C:\\folder\\file.txt", 13, Charset::Utf8, "C:\\\xE2\x80\xA6\\file.txt"},
      {"C:\\folder\\file.txt", 15, Charset::Ascii, "C:\\...\\file.txt"},
      // Two columns each: four of the five characters do not fit beside the gap.
      {"\xE4\xB8\x80\xE4\xB8\x81\xE4\xB8\x83\xE4\xB8\x8D\xE4\xB8\x8E", 6, Charset::Utf8,
       "\xE2\x80\xA6\xE4\xB8\x8D\xE4\xB8\x8E"},
      {"abcdef", 1, Charset::Utf8, ""},
      {"abcdef", 0, Charset::Ascii, ""},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ShortenedText(c.text, c.columns, c.charset), c.expected) << c.text << c.columns;
  }
}

TEST(TerminalText, LineBreaksOfMessagesSurvive) {
  EXPECT_EQ(PrintableLines("one\r\ntwo\nthree\rfour\x1b", Charset::Ascii), "one\ntwo\nthree?four?");
}

TEST(ProgressLine, LeavesOutWhatDoesNotFit) {
  const ProgressState state = {.phase = "Defragmenting",
                               .item = "C:\\Users\\somebody\\letter.txt",
                               .done = 1,
                               .total = 4,
                               .left = seconds(3725)};
  const std::string bar = std::string(5, '#') + std::string(15, '-');
  EXPECT_EQ(ProgressText(state, 90, Charset::Ascii),
            "Defragmenting  " + bar + "   25%  1:02:05 left  C:\\Users\\somebody\\letter.txt");
  EXPECT_EQ(ProgressText(state, 72, Charset::Ascii),
            "Defragmenting  " + bar + "   25%  1:02:05 left  C:\\...etter.txt");
  EXPECT_EQ(ProgressText(state, 55, Charset::Ascii),
            "Defragmenting  " + bar + "   25%  1:02:05 left");
  EXPECT_EQ(ProgressText(state, 35, Charset::Ascii), "Defragmenting  " + bar);
  EXPECT_EQ(ProgressText(state, 33, Charset::Ascii), "Defragmenting   25%  1:02:05 left");
  EXPECT_EQ(ProgressText(state, 25, Charset::Ascii), "Defragmenting   25%");
}

TEST(ProgressLine, PercentIsRoundedDownAndOnlyKnownWithATotal) {
  EXPECT_EQ(Percent({.phase = "", .item = "", .done = 999, .total = 1000, .left = {}}), 99);
  EXPECT_EQ(Percent({.phase = "", .item = "", .done = 7, .total = 7, .left = {}}), 100);
  EXPECT_EQ(Percent({.phase = "", .item = "", .done = 9, .total = 7, .left = {}}), 100);
  EXPECT_EQ(Percent({.phase = "", .item = "", .done = 0, .total = 0, .left = {}}), std::nullopt);
}

TEST(ProgressLine, TimeLeftFollowsTheRateOfThisRangeOnly) {
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
