// SPDX-License-Identifier: GPL-2.0-or-later
// The report as a browser shows it: what stands there, what the map looks like, and that nothing in
// it acts or reaches for the network.
#include <algorithm>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "engine/run_view.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/png_picture.h"
#include "support/seed.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

// Is part somewhere in whole, pixel for pixel?
bool Contains(const Picture& whole, const Picture& part) {
  const auto rows_equal = [&](std::size_t x, std::size_t y, std::size_t row) {
    return std::equal(part.Row(row), part.Row(row) + part.width, whole.Row(y + row) + x);
  };
  for (std::size_t y = 0; y + part.height <= whole.height; ++y) {
    for (std::size_t x = 0; x + part.width <= whole.width; ++x) {
      std::size_t row = 0;
      while (row < part.height && rows_equal(x, y, row)) ++row;
      if (row == part.height) return true;
    }
  }
  return false;
}

// The text of a piece of a document as the browser writes it.
std::string Unescaped(std::string text) {
  for (const auto& [entity, plain] :
       {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&nbsp;", "\u00a0"}, {"&amp;", "&"}}) {
    for (std::size_t at = 0; (at = text.find(entity, at)) != std::string::npos; ++at) {
      text.replace(at, std::strlen(entity), plain);
    }
  }
  return text;
}

class ReportInBrowser : public ImageFolder {
 protected:
  // Runs Debian's browser on the page, without a network. Its output goes to the file.
  void Browse(const std::string& options, const std::string& output) const {
    Run("HOME=$PWD timeout 120 chromium --headless --no-sandbox --disable-gpu "
        "--user-data-dir=$PWD/browser --host-resolver-rules='MAP * ~NOTFOUND' "
        "--window-size=1000,6000 " +
        options + " file://$PWD/page.html >" + output);
  }

  std::string Text(const std::string& name) const {
    const Bytes bytes = Get(name);
    return {bytes.begin(), bytes.end()};
  }
};

TEST_F(ReportInBrowser, ShowsMapFiguresAndFilesAndNothingActs) {
  // If the image's name were taken for markup, the page's title would change.
  const std::string image = Path("<img src=x onerror=document.title='acted'>&'.img");
  const std::string recipe =
      "ntfs size=32M files=120 fragmented=90% pieces=4 fill=60% "
      "odd-names=60% seed=" +
      std::to_string(TestSeed(3));
  SCOPED_TRACE(recipe);
  MakeVolume(recipe, image);
  const ProgramEnd run = RunProgram({"analyze", image, "--json", "--list", "--png", Path("map.png"),
                                     "--report", Path("page.html")});
  ASSERT_EQ(run.code, 0) << run.err;
  const Json told = Json::parse(run.out);
  EXPECT_EQ(Text("page.html").find("http"), std::string::npos);

  ASSERT_NO_FATAL_FAILURE(Browse("--dump-dom", "dom.html"));
  const std::string dom = Text("dom.html");
  EXPECT_NE(dom.find("<title>Analysis of C:</title>"), std::string::npos) << dom;
  EXPECT_NE(Unescaped(dom).find(image), std::string::npos);
  std::map<std::string, std::string> rows;
  const std::regex row("<tr><td>([^<]*)</td><td class=\"n\">([^<]*)</td>");
  for (std::sregex_iterator it(dom.begin(), dom.end(), row), end; it != end; ++it) {
    rows[Unescaped((*it)[1])] = (*it)[2];
  }
  EXPECT_EQ(rows["Files"], told["total_files"].dump());
  EXPECT_EQ(rows["Fragments"], told["fragments"].dump());
  bool marked = false;
  for (const Json& file : told["fragmented_files"]) {
    const std::string path = file["path"];
    if (path.find("\ufffd") != std::string::npos) continue;  // half a character
    EXPECT_EQ(rows[path], file["extents"].dump()) << path;
    marked |= path.find("'sorts' & of+signs") != std::string::npos;
  }
  EXPECT_TRUE(marked) << "no name that needs care";

  // On a telephone nothing is wider than the screen.
  Run("echo '<script>document.title=document.body.scrollWidth<=innerWidth</script>'>>page.html");
  ASSERT_NO_FATAL_FAILURE(Browse("--window-size=500,3000 --dump-dom", "narrow.html"));
  EXPECT_NE(Text("narrow.html").find("<title>true<"), std::string::npos);

  ASSERT_NO_FATAL_FAILURE(Browse("--screenshot=$PWD/screen.png", "output.screen"));
  const Picture map = ReadPng(Get("map.png"));
  EXPECT_TRUE(Contains(ReadPng(Get("screen.png")), map));
  ASSERT_GT(map.height, 40u);
  const std::set<Colour> strip(map.Row(40), map.Row(40) + map.width);
  for (const Colour colour : {map_colour::kUsed, map_colour::kFree, map_colour::kDefrag}) {
    EXPECT_TRUE(strip.contains(colour)) << std::hex << colour;
  }
}

}  // namespace
}  // namespace vornalux::test
