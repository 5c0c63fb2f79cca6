// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

#include "check/content.h"
#include "mkvolume/recipe.h"

namespace vornalux {
namespace {

TEST(RecipeTest, TextGivesTheSameRecipeBack) {
  const char* const texts[] = {
      "ntfs seed=1",
      "fat12 size=4M seed=77 files=10 bad=3",
      "fat32 size=1G cluster=2K seed=18446744073709551615 fill=0.725 deleted=0.1",
      "ntfs size=512M cluster=4K seed=3 files=5000 folders=200 crowd=900 fill=0.6 big=2 "
      "fragmented=0.5 fragmented-folders=1 pieces=12 windows=1 odd-names=0 streams=0.01 "
      "sparse=0.01 "
      "compressed=0.01 links=0.01 dos-names=0.015 mft-pieces=7 partitioned=1 shredded=2:5000 "
      "drive=D",
  };
  for (const char* text : texts) {
    EXPECT_EQ(Recipe::Parse(text).Text(), text);
  }
  EXPECT_EQ(Recipe::Parse("fat16 size=33554432 fragmented=30%").Text(),
            "fat16 size=32M seed=1 fragmented=0.3");
}

TEST(RecipeTest, SaysWhichWordIsWrong) {
  struct Case {
    const char* text;
    const char* word;
  };
  const Case cases[] = {
      {"ext4", "ext4"},
      {"ntfs size=12X", "size=12X"},
      {"ntfs size=99999999999T", "size=99999999999T"},
      {"ntfs size=1K", "size"},
      {"ntfs cluster=3000", "cluster"},
      {"ntfs sector=512 cluster=256", "cluster"},
      {"ntfs sector=100", "sector"},
      {"ntfs files=1.5", "files=1.5"},
      {"ntfs crowd=600", "crowd"},
      {"ntfs fill=101%", "fill=101%"},
      {"ntfs fill=96%", "fill"},
      {"ntfs fill=nan", "fill=nan"},
      {"ntfs drive=c", "drive"},
      {"ntfs colour=blue", "colour=blue"},
      {"ntfs bad=3", "bad"},
      {"fat16 streams=1%", "streams"},
      {"ntfs cluster=64K compressed=1%", "compressed"},
      {"ntfs mft-pieces=0", "mft-pieces"},
  };
  for (const Case& bad : cases) {
    try {
      Recipe::Parse(bad.text);
      ADD_FAILURE() << bad.text << " was taken";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find("\"" + std::string(bad.word) + "\""),
                std::string::npos)
          << error.what();
    }
  }
}

TEST(ManifestTest, KeepsEveryName) {
  Manifest manifest;
  manifest.header = {"recipe ntfs", ""};
  const std::string hash(64, 'a');
  for (const char* path : {"/plain", "/tab\there", "/back\\slash", "/line\nend\r", "/ü:strøm",
                           "/\\t", "/ends in blank "}) {
    manifest.entries[path] = {hash, 18446744073709551615U};
  }
  manifest.entries["/folder/"] = {"-", 0};
  std::stringstream text;
  manifest.Write(text);
  const Manifest back = Manifest::Read(text);
  EXPECT_EQ(back.header, manifest.header);
  EXPECT_EQ(back.entries, manifest.entries);
}

TEST(ManifestTest, RefusesWhatItCannotRead) {
  const std::string hash(64, 'a');
  const std::string good = hash + "\t1\t/a\n";
  const std::string lines[] = {
      "nonsense\n", hash + "\t1\n", hash + "\t1\t\n", hash + "\tx\t/b\n", "abc\t1\t/b\n", good,
  };
  for (const std::string& line : lines) {
    std::istringstream text(good + line);
    try {
      Manifest::Read(text);
      ADD_FAILURE() << line << " was taken";
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find("line 2"), std::string::npos) << error.what();
    }
  }
}

TEST(ManifestTest, NamesEveryDifference) {
  const std::string a(64, 'a');
  const std::string b(64, 'b');
  Manifest expected;
  expected.entries = {
      {"/same", {a, 1}}, {"/size", {a, 1}}, {"/content", {a, 1}}, {"/gone", {a, 1}}};
  Manifest actual;
  actual.entries = {{"/same", {a, 1}}, {"/size", {a, 2}}, {"/content", {b, 1}}, {"/new", {a, 1}}};
  EXPECT_EQ(CompareContent(actual, expected),
            (std::vector<std::string>{"content differs: /content", "missing: /gone",
                                      "size differs: /size: 2 instead of 1", "unexpected: /new"}));
}

}  // namespace
}  // namespace vornalux
