// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_names.h"

#include <gtest/gtest.h>

#include "host/image/device/little_endian.h"
#include "host/image/ntfs/ntfs_library.h"
#include "support/image_folder.h"
#include "text/upper_case.h"
#include "volumes/fat/fat_image.h"

namespace vornalux::test {
namespace {

using Names = std::vector<std::pair<std::string, std::uint32_t>>;

Names RootNames(FatWorld& world) {
  const auto volume = world.Open();
  std::vector<FolderItem> items;
  EXPECT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  Names names;
  for (const FolderItem& item : items) names.emplace_back(item.name, item.attributes);
  return names;
}

// The library of NTFS makes the same table in its own way.
TEST(FatNames, UpperCaseIsThatOfANewVolume) {
  std::vector<ntfschar> table(0x10000);
  ntfs_upcase_table_build(table.data(), static_cast<u32>(table.size() * sizeof(ntfschar)));
  for (std::size_t unit = 0; unit < table.size(); ++unit) {
    ASSERT_EQ(UpperCase(static_cast<char16_t>(unit)), le16_to_cpu(table[unit])) << unit;
  }
}

TEST(FatNames, ListedInOrderWithAttributes) {
  const ScratchFolder scratch;
  scratch.Run("mkfs.fat -C -n VORNALUX -i 1234ABCD -F 32 -s 1 image 34000; echo >any");
  const std::string longest(255, 'x');
  for (const std::string name :
       {"SHORT.TXT", "gone.txt", "lower.txt", "MIXED.txt", "Äußerst lang & 名前.txt", "ends",
        longest.c_str(), "hidden.sys"}) {
    scratch.Run("mcopy -i image any '::/" + name + "'");
  }
  scratch.Run(
      "mmd -i image '::/Folder'; mdel -i image ::/gone.txt; mattrib -i image +h +s +r "
      "::/hidden.sys");
  FatWorld world(scratch.Get("image"));
  EXPECT_EQ(RootNames(world), (Names{{"SHORT.TXT", 0x20},
                                     {"lower.txt", 0x20},
                                     {"MIXED.txt", 0x20},
                                     {"Äußerst lang & 名前.txt", 0x20},
                                     {"ends", 0x20},
                                     {longest, 0x20},
                                     {"hidden.sys", 0x27},
                                     {"Folder", 0x10}}));
  const VolumeFacts facts = world.Open()->Facts();
  EXPECT_EQ(facts.file_system + facts.label, "FAT32VORNALUX");
  EXPECT_EQ(facts.serial, 0x1234ABCDu);
}

// A volume with the file "abcdefghijklmn.txt" only; its long name takes the two entries before its
// own. change gets the offset of the short entry.
template <typename Change>
std::string NameAfter(Change change) {
  static const Bytes made = [] {
    const ScratchFolder scratch;
    scratch.Put("any", {});
    scratch.Run("mkfs.fat -C -F 12 image 1000 && mcopy -i image any ::/abcdefghijklmn.txt");
    return scratch.Get("image");
  }();
  FatWorld world(made);
  change(world.Image(), world.Find("ABCDEF~1TXT"));
  const Names names = RootNames(world);
  return names.size() == 1 ? names[0].first : std::to_string(names.size()) + " names";
}

// Makes the long name's first units these.
auto Units(const std::u16string& units) {
  return [units](Bytes& image, std::size_t at) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      StoreLittle(image, at - 32 + 1 + 2 * i, static_cast<std::uint16_t>(units[i]));
    }
  };
}

// Makes the name a short one, with case flags.
auto Short(const std::string& name, std::uint8_t flags) {
  return [=](Bytes& image, std::size_t at) {
    image[at - 32] = image[at - 64] = 0xE5;
    std::copy(name.begin(), name.end(), image.begin() + static_cast<std::ptrdiff_t>(at));
    image[at + 12] = flags;
  };
}

auto Set(std::size_t back, std::size_t byte, std::uint8_t value) {
  return [=](Bytes& image, std::size_t at) { image[at - 32 * back + byte] = value; };
}

TEST(FatNames, LongNames) {
  EXPECT_EQ(NameAfter(Units(u"abc")), "abcdefghijklmn.txt");
  EXPECT_EQ(NameAfter(Units({0xD83D, 0xDE00})),
            "\xF0\x9F\x98\x80"
            "cdefghijklmn.txt");
  EXPECT_EQ(NameAfter(Units({0xDE00, 0xD83D})),
            "\xED\xB8\x80\xED\xA0\xBD"
            "cdefghijklmn.txt");
  EXPECT_EQ(NameAfter(Units({u'x', 0})), "x");
}

TEST(FatNames, BrokenLongNamesGiveWayToTheShortOne) {
  const char* const name = "ABCDEF~1.TXT";
  EXPECT_EQ(NameAfter(Set(0, 0, 'X')), "XBCDEF~1.TXT");  // renamed by one who knew no long names
  EXPECT_EQ(NameAfter(Set(1, 13, 0)), name);
  EXPECT_EQ(NameAfter(Set(2, 13, 0)), name);
  EXPECT_EQ(NameAfter(Set(2, 0, 0x43)), name);
  EXPECT_EQ(NameAfter(Set(2, 0, 0x02)), name);
  EXPECT_EQ(NameAfter(Set(2, 0, 0xE5)), name);
  EXPECT_EQ(NameAfter(Set(1, 0, 0xE5)), name);
  EXPECT_EQ(NameAfter(Set(1, 0, 0x02)), name);
  EXPECT_EQ(NameAfter(Set(2, 0, 0x7F)), name);
  for (const char16_t c : u"\0\\/:*?\"<>|\x1B") EXPECT_EQ(NameAfter(Units({c})), name) << int{c};
  EXPECT_EQ(NameAfter(Units({u'.', u'.', 0})), name);
}

TEST(FatNames, ShortNames) {
  EXPECT_EQ(NameAfter(Short("ABC     TXT", 0x08)), "abc.TXT");
  EXPECT_EQ(NameAfter(Short("ABC     TXT", 0x10)), "ABC.txt");
  EXPECT_EQ(NameAfter(Short("A B        ", 0x18)), "a b");
  EXPECT_EQ(NameAfter(Short("\x05\x9A\x81     \xA5\xFF ", 0)), "σÜü.Ñ\u00A0");
  EXPECT_EQ(NameAfter(Short("\x9A\xE2      TXT", 0x08)), "üγ.TXT");
}

TEST(FatNames, FoldedNamesAreEqualWhereTheVolumeTakesThemSo) {
  EXPECT_EQ(FoldFatName("aZ09äéßωж~.txt"), "AZ09ÄÉßΩЖ~.TXT");
  EXPECT_EQ(FoldFatName("\xF0\x9F\x98\x80\xED\xA0\xBD"), "\xF0\x9F\x98\x80\xED\xA0\xBD");
  for (const std::string broken : {"\xFF\x41", "A\xC3", "\xC0\x80", "\xE0\x81\x81", "\xC1\xA1"}) {
    EXPECT_EQ(FoldFatName(broken), broken);
  }
}

}  // namespace
}  // namespace vornalux::test
