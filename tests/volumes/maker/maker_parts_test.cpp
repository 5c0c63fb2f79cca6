// SPDX-License-Identifier: GPL-2.0-or-later
// Parts of the volume maker against plain statements of what they must do.
#include <gtest/gtest.h>

#include <set>

#include "check/fat_folder.h"
#include "mkvolume/fat_entries.h"
#include "mkvolume/names.h"
#include "mkvolume/payload.h"
#include "support/seed.h"

namespace vornalux::making {
namespace {

TEST(PayloadTest, AnyPartIsThatPartOfTheWhole) {
  test::TestRandom random;
  for (const Payload::Kind kind :
       {Payload::Kind::Noise, Payload::Kind::Prose, Payload::Kind::Literal}) {
    Payload payload{kind, random(), 300'001, std::string(300'001, 'x')};
    payload.literal[77] = 'y';
    std::vector<std::uint8_t> whole(payload.size + 100, 0xEE);
    payload.Fill(0, whole);
    EXPECT_TRUE(std::all_of(whole.end() - 100, whole.end(), [](auto b) { return b == 0; }));
    for (int round = 0; round < 200; ++round) {
      const std::uint64_t at = random.Below(whole.size());
      std::vector<std::uint8_t> part(random.Below(std::min<std::size_t>(9000, whole.size() - at)));
      payload.Fill(at, part);
      EXPECT_TRUE(
          std::equal(part.begin(), part.end(), whole.begin() + static_cast<std::ptrdiff_t>(at)))
          << at;
    }
  }
}

// The maker's folder entries, read back by the checker.
TEST(FatEntriesTest, NamesComeBack) {
  test::TestRandom random;
  FatFolderEntries entries;
  std::vector<std::u16string> names = {u"MiXed.Txt", std::u16string(255, u'x')};
  std::u16string rest =
      u"A/b/C.D/e.f/UPPER.low/lower.UP/two.dots.txt/.hidden/with space/12345678.123/123456789.123/"
      u"12345678.1234/ÄÖÜ.TXT/plus+.txt/tilde~1.text/exactly13char/exactly26characters-in-all/~1/"
      u"A~1/ab~1.txt/";
  for (std::size_t end = 0; (end = rest.find(u'/')) != rest.npos; rest.erase(0, end + 1)) {
    names.push_back(rest.substr(0, end));
  }
  for (std::uint64_t i = 0; i < 400; ++i) {
    names.push_back(random.Chance(0.5) ? OddName(i, false, random) : PlainFileName(i, random));
  }
  std::vector<std::string> expected;
  for (const std::u16string& name : names) {
    if (random.Chance(0.3)) entries.AddDeleted(name + u" deleted", 5);
    const std::size_t entry = entries.Add(name, false);
    entries.SetCluster(entry, static_cast<std::uint32_t>(expected.size() + 70'000));
    entries.SetSize(entry, static_cast<std::uint32_t>(expected.size() * 1'000'003));
    expected.push_back(checking::ToUtf8(name));
  }
  std::vector<std::string> faults;
  checking::Problems problems(faults, 100);
  const auto found = checking::ReadFatFolder(entries.Bytes(), true, "/", problems);
  EXPECT_EQ(faults, std::vector<std::string>());
  ASSERT_EQ(found.size(), expected.size());
  std::set<std::array<std::uint8_t, 11>> short_names;
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].name, expected[i]);
    EXPECT_EQ(found[i].cluster, i + 70'000);
    EXPECT_EQ(found[i].size, i * 1'000'003);
    EXPECT_TRUE(short_names.insert(found[i].short_name).second) << found[i].name;
  }
}

}  // namespace
}  // namespace vornalux::making
