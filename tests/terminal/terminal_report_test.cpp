// SPDX-License-Identifier: GPL-2.0-or-later
// Map images and reports: what they show, and that nothing from a volume can act in them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "host/terminal/output/debug_log.h"
#include "host/terminal/picture/map_image.h"
#include "host/terminal/result/html_report.h"
#include "host/terminal/result/results_json.h"
#include "host/terminal/result/results_text.h"
#include "support/image_folder.h"
#include "support/png_picture.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

TEST(MapImage, ShowsEveryColumnInItsColourAndTheLegend) {
  // Colours that occur in no legend, so that each can be found again.
  MapColumns columns;
  for (Colour i = 0; i < 400; ++i) columns.push_back(0x123400 + i * 7);
  Legend legend;
  legend.density = {{map_colour::kFree, false, 0, "free"},
                    {map_colour::kMftZone, true, map_colour::kMft, "MFT (area)"}};
  legend.candidates = {{map_colour::kDefrag, false, 0, "defrag"}};
  const Picture picture = ReadPng(EncodePng(DrawMapWithLegend(columns, legend)));
  const std::vector<Colour>& pixels = picture.pixels;
  ASSERT_GE(picture.width, 800u);
  const auto first = std::find(pixels.begin(), pixels.end(), columns.front());
  ASSERT_NE(first, pixels.end());
  // Squares of 20 pixels, 40 in a line.
  for (std::ptrdiff_t i = 0; i < std::ssize(columns); ++i) {
    const auto at = i / 40 * 20 * static_cast<std::ptrdiff_t>(picture.width) + i % 40 * 20;
    ASSERT_EQ(first[at], columns[static_cast<std::size_t>(i)]) << "column " << i;
  }
  for (const Colour box :
       {map_colour::kFree, map_colour::kMftZone, map_colour::kMft, map_colour::kDefrag}) {
    EXPECT_GT(std::count(pixels.begin(), pixels.end(), box), 16) << std::hex << box;
  }
}

// Names are what they like; each entry stays one line, and nothing on it steers a terminal.
TEST(DebugLogFile, IsALineForEachEntryWhateverTheNames) {
  ScratchFolder folder;
  TestRandom random;
  constexpr int kEntries = 500;
  {
    OutputFile file;
    file.Open("--debug-log", folder.Path("log"));
    DebugLogFile log(Charset::Utf8);
    LogBox box;
    log.Use(file);
    log.Watch(box);
    for (int i = 0; i < kEntries; ++i) {
      std::string name;
      for (auto length = random() % 20; length > 0; --length) {
        constexpr std::string_view kPieces[] = {"\r\n", "\n",       "\x1b[2J", "\x7f",
                                                "\t",   "\xc2\x9b", "a",       "\xff"};
        name += kPieces[random() % std::size(kPieces)];
      }
      box.Append("fragged: " + name + ", fragments: 2");
      box.Append("\r\n");
    }
    EXPECT_FALSE(log.Finish());
  }
  const Bytes log = folder.Get("log");
  const std::string text(log.begin(), log.end());
  EXPECT_EQ(std::ranges::count(text, '\n'), kEntries);
  static const std::regex kSteering("[\\x01-\\x09\\x0b-\\x1f\\x7f]|\xc2\x9b");
  EXPECT_FALSE(std::regex_search(text, kSteering));
}

TEST(ResultsJson, TellWhatStayedAndWhy) {
  PassResult result;
  result.moved.failures = {{"C:\\a", NotMoved::CannotOpen, 32},
                           {"C:\\b", NotMoved::NoGap, 0},
                           {"C:\\c", NotMoved::Alignment, 0},
                           {"C:\\d", NotMoved::Refused, 5}};
  result.unreadable = {{"C:\\e", error::kGenFailure, 4096}, {"C:\\f", error::kFileCorrupt, {}}};
  result.before.emplace();
  result.moved.moves = 1;
  EXPECT_NE(ToText(result, Charset::Utf8).find("  1 move, 0 bytes"), std::string::npos);
  std::string json = ToJson(result);
  std::erase_if(json, [](char c) { return c == ' ' || c == '\n'; });
  for (const char* part :
       {R"("not_moved":[{"path":"C:\\a","reason":"locked","code":32,"text":)"
        R"("Theprocesscannotaccessthefilebecauseitisbeingusedbyanotherprocess."},)"
        R"({"path":"C:\\b","reason":"nogap"},{"path":"C:\\c","reason":"alignment"},)"
        R"({"path":"C:\\d","reason":"refused","code":5,"text":"Accessisdenied."}])",
        R"(31,"text":"Adeviceattachedtothesystemisnotfunctioning.","byte":4096},)"
        R"({"path":"C:\\f","code":1392,"text":)"}) {
    EXPECT_NE(json.find(part), std::string::npos) << json;
  }
}

TEST(ResultsText, TellTheFirstThatCouldNotBeReadAndCountTheRest) {
  std::vector<ReadFailure> failures;
  for (int i = 0; i < 12; ++i) failures.push_back({"C:\\\x1b" + std::to_string(i), 31, i * 512});
  const std::string text = ToText(failures, false);
  EXPECT_NE(text.find("12 files or folders"), std::string::npos) << text;
  EXPECT_NE(text.find("9  (the disk failed at byte 4608)\n  and 2 more; --json"), std::string::npos)
      << text;
  EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

TEST(Results, TheTemperatureIsToldWhereThereIsOne) {
  AnalysisResult result;
  result.volume.drive = "C:";
  EXPECT_EQ(ToText(result, Charset::Utf8).find("temp"), std::string::npos);
  EXPECT_EQ(ToJson(result).find("temperature"), std::string::npos);
  result.temperature = 41;
  EXPECT_NE(ToText(result, Charset::Utf8).find("\n  C: temp 41 \xC2\xB0\x43\n"), std::string::npos);
  EXPECT_NE(ToText(result, Charset::Ascii).find("\n  C: temp 41 C\n"), std::string::npos);
  EXPECT_NE(ToJson(result).find("\"temperature\": 41"), std::string::npos);
  // The same for what could not be worked out.
  EXPECT_EQ(ToText(result, Charset::Utf8).find("What passes would"), std::string::npos);
  result.details.gains = {{.pass = Pass::Compact, .thorough = true, .figures = {}}};
  const std::string text = ToText(result, Charset::Utf8);
  EXPECT_NE(text.find("  compact --thorough        not worked out\n  --gains "), std::string::npos)
      << text;
  EXPECT_NE(ToJson(result).find("\"largest_gap\": null"), std::string::npos);
}

TEST(HtmlReport, StandsAloneAndNamesCannotActInIt) {
  ReportContent report;
  report.action = "Defragmentation";
  report.volume.drive = "C:";
  report.volume.label = "<b>\"&";
  report.when = "2026-11-22 <now>";
  report.took = std::chrono::seconds(65);
  report.before = AnalysisFigures{.total_files = 4711, .fragmented = 4000};
  report.after = AnalysisFigures{.total_files = 4711};
  report.before->total_clusters = 30;
  report.before->free_clusters = 3;
  report.moved.emplace();
  report.moved->failures.push_back({"C:\\a<script>alert(1)</script>", NotMoved::Refused, 5});
  report.unreadable.push_back({"C:\\<i>lost</i>", error::kFileCorrupt, {}});
  RunSummary& summary = report.summary.emplace();
  summary.after.emplace();
  summary.still_fragmented.resize(1, {.path = "C:\\x\x1b[31m\xff<script>.txt", .fragments = 12});
  report.map_before.assign(100, map_colour::kUsed);
  const std::string html = ToHtml({&report, 1});

  for (const char* absent : {"<script", "<b>", "http", "url(", "@import", "\x1b", "\xff"}) {
    EXPECT_EQ(html.find(absent), std::string::npos) << absent;
  }
  for (const char* present :
       {"4,711", "2026-11-22 &lt;now&gt;", "1:05 in all", "<td class=\"n good\">&minus;4,000</td>",
        "(10.0%)", "a&lt;script&gt;", "refused", "data:image/png;base64,iVBORw",
        "&lt;b&gt;&quot;&amp;", "Left where it was", "&lt;i&gt;lost"}) {
    EXPECT_NE(html.find(present), std::string::npos) << present;
  }

  const auto all_found = [&] {
    return ToHtml({&report, 1}).find("every move found") != std::string::npos;
  };
  report.moved->failures.clear();
  EXPECT_FALSE(all_found()) << "a file is still fragmented";
  summary.still_fragmented.clear();
  EXPECT_TRUE(all_found());
}

TEST(WriteAll, WaitsForAPipeThatDoesNot) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const std::string text(std::size_t{1} << 20, 'x');
  std::error_code error;
  std::thread writer([&] {
    error = WriteAll(ends[1], text);
    close(ends[1]);
  });
  std::ostringstream arrived;
  arrived << std::ifstream("/dev/fd/" + std::to_string(ends[0])).rdbuf();
  writer.join();
  close(ends[0]);
  EXPECT_FALSE(error) << error.message();
  EXPECT_TRUE(arrived.str() == text);
}

}  // namespace
}  // namespace vornalux::test
