// SPDX-License-Identifier: GPL-2.0-or-later
// The whole program in the hands of a user who does anything at any moment.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "support/seed.h"
#include "user/player.h"

namespace vornalux::testing {
namespace {

constexpr std::size_t kSteps = 100'000;
constexpr std::size_t kStepsInSequence = 50;

// The seed, then a line for each step.
std::string Text(std::uint64_t seed, const std::vector<Step>& steps) {
  std::ostringstream text;
  text << "seed " << seed << "\n";
  for (const Step& step : steps) {
    text << step.wait << (step.yes ? " yes " : " no ") << step.deed << "\n";
  }
  return text.str();
}

std::vector<Step> Parse(std::istream& text, std::uint64_t& seed) {
  std::vector<Step> steps;
  std::string word;
  text >> word >> seed;
  for (Step step; text >> step.wait >> word && std::getline(text >> std::ws, step.deed);) {
    step.yes = word == "yes";
    steps.push_back(step);
  }
  return steps;
}

// Chunk after chunk is dropped, ever smaller ones, as long as the same rule is broken without it.
std::vector<Step> Shortened(std::uint64_t seed, std::vector<Step> steps, const std::string& rule) {
  for (std::size_t chunk = steps.size(), at = 0; chunk > 0;) {
    if (at >= steps.size()) {
      chunk /= 2;
      at = 0;
      continue;
    }
    std::vector<Step> fewer = steps;
    const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
    fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(chunk, steps.size() - at)));
    const std::optional<Fault> fault = Replay(seed, fewer).fault;
    if (fault && fault->rule == rule) {
      steps = std::move(fewer);
      // What it needed may not be needed any more.
      if (chunk == 1) at = 0;
    } else {
      at += chunk;
    }
  }
  return steps;
}

TEST(User, DoesAnythingAtAnyMoment) {
  std::map<std::string, int> broken;
  std::size_t steps = 0;
  for (std::uint64_t seed = test::TestSeed(); steps < kSteps; ++seed) {
    const Played played = PlayAtRandom(seed, kStepsInSequence);
    steps += played.steps.size();
    if (!played.fault || ++broken[played.fault->rule] > 1) continue;
    const std::string& rule = played.fault->rule;
    ADD_FAILURE() << rule << " " << played.fault->what << "\n"
                  << test::SeedNote(seed) << ", " << played.steps.size()
                  << " steps, of which these are enough:\n"
                  << Text(seed, Shortened(seed, played.steps, rule));
  }
  for (const auto& [rule, times] : broken) std::cout << rule << ": " << times << " times\n";
}

TEST(User, DoesWhatAFileSays) {
  const char* const file = std::getenv("VORNALUX_STEPS");
  if (file == nullptr) GTEST_SKIP() << "VORNALUX_STEPS names none";
  std::ifstream text(file);
  std::uint64_t seed = 0;
  const std::vector<Step> steps = Parse(text, seed);
  ASSERT_FALSE(steps.empty()) << file;
  const std::optional<Fault> fault = Replay(seed, steps).fault;
  EXPECT_FALSE(fault) << fault->rule << " " << fault->what;
}

}  // namespace
}  // namespace vornalux::testing
