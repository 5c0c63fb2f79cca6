// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "check/content.h"
#include "check/volume_check.h"

namespace vornalux::test {

// Structure and content by judges that share nothing with the program, and no journal left.
inline void ExpectIntact(const std::string& image, const Manifest& manifest,
                         std::uint64_t offset = 0) {
  const CheckReport report = CheckVolume(image, {.offset = offset, .hash = true});
  EXPECT_TRUE(report.Clean()) << report.ProblemText();
  EXPECT_FALSE(report.dirty);
  EXPECT_EQ(CompareContent(report.items, manifest), std::vector<std::string>());
  EXPECT_FALSE(std::filesystem::exists(image + ".vornalux-journal"));
}

}  // namespace vornalux::test
