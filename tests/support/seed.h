// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/simulated/seeded_random.h"

namespace vornalux::test {

// The seed of a random test: VORNALUX_SEED when it is set. Tests name it when they fail
// (SCOPED_TRACE), so that the failure can be repeated.
inline std::uint64_t TestSeed(std::uint64_t otherwise = 1) {
  const char* text = std::getenv("VORNALUX_SEED");
  return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 0) : otherwise;
}

inline std::string SeedNote(std::uint64_t seed) { return "VORNALUX_SEED=" + std::to_string(seed); }

// Random numbers from that seed, which failures name for as long as this lives.
struct TestRandom : SeededRandom {
  TestRandom() : SeededRandom(TestSeed()) {}
  const ::testing::ScopedTrace trace{__FILE__, __LINE__, SeedNote(TestSeed())};
};

}  // namespace vornalux::test
