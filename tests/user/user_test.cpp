// SPDX-License-Identifier: GPL-2.0-or-later
// The whole program in the hands of a user who does anything at any moment.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "support/seed.h"
#include "user/player.h"

namespace vornalux::testing {
namespace {

constexpr std::size_t kSteps = 300'000;
constexpr std::size_t kStepsInSequence = 50;
constexpr unsigned kPatience = 120;  // seconds that a sequence may take

std::string Text(const Step& step) {
  return std::to_string(step.wait) + (step.yes ? " yes " : " no ") + step.deed + "\n";
}

// From the line with the seed on.
std::vector<Step> Parse(std::istream& text, std::uint64_t& seed) {
  std::vector<Step> steps;
  std::string yes;
  text >> yes >> seed;
  for (Step step; text >> step.wait >> yes && std::getline(text >> std::ws, step.deed);) {
    step.yes = yes == "yes";
    steps.push_back(step);
  }
  text.clear();
  return steps;
}

struct Played {
  std::uint64_t seed = 0;
  std::vector<Step> steps;
  std::optional<Fault> fault;
  std::size_t steps_in_all = 0;
};

// Plays the steps given, or so many at random, a sequence for each seed from this one on, up to the
// first fault. In a process of its own, so that a crash is a finding like any other.
Played Play(std::uint64_t seed, std::size_t steps, const std::vector<Step>* given = nullptr) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    std::size_t taken = 0;
    const auto tell = [&](const std::string& text) {
      if (write(ends[1], text.data(), text.size()) < 0) _exit(1);
    };
    const Taken note = [&](const Step& step) {
      ++taken;
      tell(Text(step));
    };
    for (bool first = true; first || taken < steps; first = false, ++seed) {
      tell("seed " + std::to_string(seed) + "\n");
      alarm(kPatience);
      const auto fault = Player(seed, kStepsInSequence, given, note).Play();
      if (!fault) continue;
      tell("! " + fault->rule + "\n" + fault->what);
      break;
    }
    _exit(0);
  }
  close(ends[1]);
  std::stringstream told;
  told << std::ifstream("/dev/fd/" + std::to_string(ends[0])).rdbuf();
  const std::string text = told.str();
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  Played played;
  played.steps_in_all = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  std::istringstream last(text.substr(text.rfind("seed ")));
  played.steps = Parse(last, played.seed);
  std::string mark;
  if (status != 0) {
    played.fault = {"x: crash", "wait status " + std::to_string(status)};
  } else if (last >> mark) {
    played.fault.emplace();
    std::getline(last >> std::ws, played.fault->rule);
    std::getline(last, played.fault->what);
  }
  return played;
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
    const std::optional<Fault> fault = Play(seed, 0, &fewer).fault;
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
  std::uint64_t seed = test::TestSeed();
  for (std::size_t steps = 0; steps < kSteps; ++seed) {
    const Played played = Play(seed, kSteps - steps);
    steps += played.steps_in_all;
    seed = played.seed;
    if (!played.fault || ++broken[played.fault->rule] > 1) continue;
    std::string fewest;
    for (const Step& step : Shortened(seed, played.steps, played.fault->rule)) fewest += Text(step);
    ADD_FAILURE() << played.fault->rule << " " << played.fault->what << "\n"
                  << test::SeedNote(seed) << ", " << played.steps.size()
                  << " steps, of which these are enough:\nseed " << seed << "\n"
                  << fewest;
  }
  for (const auto& [rule, times] : broken) std::cout << rule << ": " << times << " times\n";
}

// Too rare to be met by chance: what is gone while it is needed is back when somebody looks.
TEST(User, DoesAgainWhatBrokeARule) {
  for (const char* const text : {"seed 1\n0 no start \n0 no Select Drive\n0 no Analyze\n"
                                 "8 yes C: is gone\n24 yes C: is well\n",
                                 "seed 604058\n0 yes start /drv d: /d /dbg\n0 yes Defrag\n"
                                 "21 no D: has no bitmap\n38 no D: is well\n"}) {
    std::istringstream lines(text);
    std::uint64_t seed = 0;
    const std::vector<Step> steps = Parse(lines, seed);
    const auto fault = Play(seed, 0, &steps).fault;
    EXPECT_FALSE(fault) << text << fault->rule << " " << fault->what;
  }
}

TEST(User, DoesWhatAFileSays) {
  const char* const file = std::getenv("VORNALUX_STEPS");
  if (file == nullptr) GTEST_SKIP() << "VORNALUX_STEPS names none";
  std::ifstream text(file);
  std::uint64_t seed = 0;
  const std::vector<Step> steps = Parse(text, seed);
  ASSERT_FALSE(steps.empty()) << file;
  const auto fault =
      Player(seed, 0, &steps, [](const Step& step) { std::cout << Text(step); }).Play();
  EXPECT_FALSE(fault) << fault->rule << " " << fault->what;
}

}  // namespace
}  // namespace vornalux::testing
