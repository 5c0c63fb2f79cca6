// SPDX-License-Identifier: GPL-2.0-or-later
// The whole program in the hands of a user who does anything at any moment.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "support/seed.h"
#include "user/player.h"
#include "user/shorten.h"

namespace vornalux::testing {
namespace {

constexpr std::size_t kSteps = 100'000;
constexpr std::size_t kStepsInSequence = 50;

// A sequence as text: the seed, then a line for each step.
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

std::string RuleBroken(std::uint64_t seed, const std::vector<Step>& steps) {
  const auto fault = Player(seed).Replay(steps);
  return fault ? fault->rule : "";
}

// One sequence for each rule that is broken, as short as it gets.
TEST(User, DoesAnythingAtAnyMoment) {
  if (const char* file = std::getenv("VORNALUX_STEPS")) {
    std::ifstream text(file);
    std::uint64_t seed = 0;
    const std::vector<Step> steps = Parse(text, seed);
    ASSERT_FALSE(steps.empty()) << file;
    const auto fault = Player(seed).Replay(steps);
    EXPECT_FALSE(fault) << fault->rule << ": " << fault->what;
    return;
  }
  const std::uint64_t first_seed = test::TestSeed();
  std::map<std::string, int> broken;
  std::size_t steps = 0;
  for (std::uint64_t seed = first_seed; steps < kSteps; ++seed) {
    Player player(seed);
    const std::optional<Fault> fault = player.PlayAtRandom(kStepsInSequence);
    steps += std::max<std::size_t>(player.Played().size(), 1);
    if (!fault || ++broken[fault->rule] > 1) continue;
    const std::vector<Step> fewest = Shortened(player.Played(), [&](const std::vector<Step>& some) {
      return RuleBroken(seed, some) == fault->rule;
    });
    ADD_FAILURE() << fault->rule << ": " << fault->what << "\nVORNALUX_SEED=" << seed << ", "
                  << player.Played().size() << " steps, of which these are enough:\n"
                  << Text(seed, fewest);
  }
  for (const auto& [rule, times] : broken) std::cout << times << " times " << rule << "\n";
}

}  // namespace
}  // namespace vornalux::testing
