// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <cstdio>

#include "host/simulated/seeded_random.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"
#include "support/seed.h"

namespace vornalux {
namespace {

constexpr int kRounds = 20000;

// Mostly surrogates and the borders between lengths: what goes wrong, goes wrong there.
std::wstring RandomUnits(SeededRandom& random, bool well_formed) {
  constexpr wchar_t kBorders[] = {0,      1,      0x7F,   0x80,   0x7FF, 0x800,
                                  0xD7FF, 0xE000, 0xFFFD, 0xFFFF, L'a',  L'\\'};
  std::wstring units;
  for (auto left = random() % 12; left > 0; --left) {
    const auto high = static_cast<wchar_t>(0xD800 + random() % 0x400);
    const auto low = static_cast<wchar_t>(0xDC00 + random() % 0x400);
    switch (random() % 4) {
      case 0:
        units += kBorders[static_cast<std::size_t>(random() % std::size(kBorders))];
        break;
      case 1:
        units += static_cast<wchar_t>(random() % 0xD800);
        break;
      case 2:
        units += {high, low};
        break;
      default:
        if (!well_formed) units += random() % 2 != 0 ? high : low;
        break;
    }
  }
  return units;
}

// And where there is nothing unpaired the system's converter agrees.
TEST(WindowsText, AllUnitsComeBack) {
  test::TestRandom random;
  for (int i = 0; i < 2 * kRounds; ++i) {
    const std::wstring units = RandomUnits(random, i < kRounds);
    const std::string text = FromWide(units);
    ASSERT_EQ(ToWide(text), units) << "round " << i;
    if (i >= kRounds) continue;
    char bytes[128];
    const int size = WideCharToMultiByte(CP_UTF8, 0, units.data(), static_cast<int>(units.size()),
                                         bytes, sizeof bytes, nullptr, nullptr);
    ASSERT_EQ(text, std::string(bytes, static_cast<std::size_t>(size))) << "round " << i;
  }
}

TEST(WindowsText, AnyBytesAreReadToTheirEnd) {
  test::TestRandom random;
  for (int i = 0; i < kRounds; ++i) {
    std::string bytes(static_cast<std::size_t>(random() % 12), '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 2 != 0 ? random() : 0x80 | random());
    const std::wstring wide = ToWide(bytes);
    ASSERT_EQ(ToWide(FromWide(wide)), wide) << "round " << i;
    ASSERT_LE(wide.size(), bytes.size());
    ASSERT_EQ(ToWidePath(bytes).has_value(),
              FromWide(wide) == bytes && bytes.find('\0') == std::string::npos)
        << "round " << i;
  }
}

TEST(WindowsText, PathsAreLiteral) {
  constexpr std::pair<const char*, const wchar_t*> kCases[] = {
      {"C:\\", L"\\\\?\\C:\\"},
      {"C:\\a.\\*", L"\\\\?\\C:\\a.\\*"},
      {"\\\\?\\C:\\a", L"\\\\?\\C:\\a"},
      {"\\\\.\\C:", L"\\\\.\\C:"},
      {"a", L"a"},
      {"", L""},
      {"C:\\\xED\xA0\x80", L"\\\\?\\C:\\\xD800"},
      {"C:\\\xF0\x82\x82\xAC", L"refused"},
  };
  for (const auto& [path, wide] : kCases) {
    EXPECT_EQ(ToWidePath(path).value_or(L"refused"), wide) << path;
  }
}

TEST(WindowsText, CodePages) {
  std::printf("[ note     ] code pages %u and %u\n", GetACP(), GetOEMCP());
  EXPECT_EQ(FromAnsi("C:\\"), "C:\\");
  EXPECT_EQ(FromOem(""), "");
  EXPECT_EQ(ToAnsi(""), "");
  if (GetACP() == 1252) {
    EXPECT_EQ(FromAnsi("\xE9\x80"), "é€");
    EXPECT_EQ(ToAnsi("é€中"), "\xE9\x80?");
    EXPECT_EQ(ToAnsi("\xED\xA0\x80"), "?");
  }
  if (GetOEMCP() == 437) {
    EXPECT_EQ(FromOem("\x82\xE1"), "éß");
    EXPECT_EQ(ToOem("éß"), "\x82\xE1");
  }
}

}  // namespace
}  // namespace vornalux
