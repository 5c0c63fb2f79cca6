// SPDX-License-Identifier: GPL-2.0-or-later
// Every crash point of whole jobs on small volumes, as many as are asked for.
//
// usage: vornalux_crash_states [--states N | --small CLUSTERS [--every N]] [--seed S] [--jobs J]
//                              [--state WORLD.CUT.CHOICE]
// --small: all FAT12 volumes of so many clusters with up to three files in up to four fragments,
// or every Nth of them, with each pass, and all the crash states of each.
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <numeric>
#include <optional>

#include "crash/states/crash_points.h"
#include "crash/states/small_volumes.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"

namespace vornalux::test {
namespace {

struct VolumeRow {
  const char* name;
  const char* recipe;
};
constexpr VolumeRow kVolumes[] = {
    {"FAT12",
     "fat12 size=64K cluster=512 files=7 folders=3 fragmented=90% pieces=3 fill=60% "
     "fragmented-folders=60%"},
    {"FAT16", "fat16 size=2300K cluster=512 files=9 folders=3 fragmented=90% pieces=4 fill=3%"},
    {"FAT32",
     "fat32 size=128K cluster=512 files=8 folders=4 fragmented=90% pieces=4 fill=60% "
     "fragmented-folders=60%"},
    {"NTFS",
     "ntfs size=4M cluster=512 files=9 folders=3 fragmented=90% pieces=4 streams=30% "
     "sparse=20% fragmented-folders=50%"},
    {"NTFS, 4 KiB",
     "ntfs size=4M cluster=4096 files=9 folders=3 fragmented=90% pieces=4 "
     "compressed=20% streams=20%"},
};
// Moves to anywhere last.
constexpr const char* kJobs[] = {
    "/drv C: /d",    "/drv C: /o",         "/drv C: /c",         "/drv C: /d /t",
    "/drv C: /c /t", "/drv C: /o /vssafe", "/drv C: /c /vssafe", ""};
constexpr std::size_t kPasses = 5;  // the first of the jobs
constexpr std::size_t kWorlds = std::size(kVolumes) * std::size(kJobs);

// Of the world's volume and job: neighbours have little in common.
constexpr std::size_t Combination(std::uint64_t world) { return world % kWorlds * 11 % kWorlds; }
static_assert(std::gcd(kWorlds, 11) == 1);

struct Options {
  std::uint64_t states = 20000;
  std::uint64_t seed = 1;
  unsigned jobs = 2;
  int small = 0;                       // clusters of small volumes
  std::uint64_t every = 1;             // of them
  std::optional<std::uint64_t> world;  // with cut and choice: that state alone
  std::size_t cut = 0;
  std::size_t choice = 0;
};

// What the workers have done together.
struct Shared {
  std::atomic<std::uint64_t> next_world, states, recoveries, refused, failures, resumed, same_end,
      other_journals, mistaken;
  std::atomic<std::uint64_t> volume_states[std::size(kVolumes)], milliseconds[std::size(kVolumes)];
};

// Of this process's own, on a machine that others use, too.
std::uint64_t Milliseconds() {
  return static_cast<std::uint64_t>(std::clock()) * 1000 / CLOCKS_PER_SEC;
}

class Explorer {
 public:
  Explorer(const Options& options, Shared& shared)
      : options_(options),
        shared_(shared),
        small_(options.small != 0 ? AllSmallLayouts(options.small) : std::vector<SmallLayout>()) {}

  void Work() {
    while (!Done() && shared_.failures == 0) Explore(shared_.next_world++);
  }

  void ExploreOne() {
    Build(*options_.world);
    if (world_->Trouble().empty()) Try(options_.cut, options_.choice, options_.choice + 1);
  }

 private:
  bool Done() const {
    if (options_.small != 0) return shared_.next_world * options_.every >= small_.size() * kPasses;
    return shared_.states >= options_.states;
  }

  void Build(std::uint64_t number) {
    number_ = number;
    if (options_.small != 0) {
      const std::uint64_t combination = number * options_.every;
      job_ = kJobs[combination % kPasses];
      const SmallLayout& layout = small_.at(combination / kPasses);
      recipe_ = std::to_string(options_.small) + " clusters;";
      for (const SmallPiece& piece : layout) {
        recipe_ += " file " + std::to_string(piece.file) + ": " + std::to_string(piece.first) +
                   "+" + std::to_string(piece.clusters);
      }
      world_.emplace(SmallFat12(layout, options_.small), job_, Seed(), false);
      if (!world_->Trouble().empty()) Fail(0, 0, world_->Trouble());
      return;
    }
    const std::uint64_t seed = Mix(options_.seed, number / kWorlds + 1);
    const ScratchFolder folder;
    recipe_ = kVolumes[Combination(number) % std::size(kVolumes)].recipe +
              (" seed=" + std::to_string(seed % 1000000));
    job_ = kJobs[Combination(number) / std::size(kVolumes)];
    MakeVolume(recipe_, folder.Path("image"));
    world_.emplace(folder.Get("image"), job_, Seed());
    if (!world_->Trouble().empty()) Fail(0, 0, world_->Trouble());
  }

  std::uint64_t Seed() const { return Mix(options_.seed, number_ + 1); }

  // Cuts in an order of chance, each with all its choices, until the world has had its share.
  void Explore(std::uint64_t number) {
    const std::uint64_t start = Milliseconds();
    const std::uint64_t share =
        options_.small != 0 ? UINT64_MAX : options_.states / kWorlds / 2 + 1;
    Build(number);
    Tally before = tally_;
    std::vector<std::size_t> order(world_->Cuts().size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    Random random(Seed());
    std::shuffle(order.begin(), order.end(), random);
    for (const std::size_t cut : order) {
      if (tally_.states - before.states >= share || shared_.failures > 0) break;
      Try(cut, 0, SIZE_MAX);
    }
    shared_.resumed += world_->Resumed().first;
    shared_.same_end += world_->Resumed().second;
    const std::size_t volume = options_.small != 0 ? 0 : Combination(number) % std::size(kVolumes);
    shared_.volume_states[volume] += tally_.states - before.states;
    shared_.milliseconds[volume] += Milliseconds() - start;
    shared_.states += tally_.states - before.states;
    shared_.recoveries += tally_.recoveries - before.recoveries;
    shared_.other_journals += tally_.other_journals - before.other_journals;
    shared_.mistaken += tally_.mistaken - before.mistaken;
    shared_.refused += tally_.refused - before.refused;
  }

  void Try(std::size_t cut_number, std::size_t first, std::size_t end) {
    const Cut& cut = world_->Cuts().at(cut_number);
    const std::uint64_t seed = Mix(Seed(), cut_number);
    const CrashPoints points(cut, seed);
    if (first >= points.Count()) throw std::out_of_range("there is no such state");
    for (std::size_t choice = first; choice < std::min(end, points.Count()); ++choice) {
      const std::string trouble = TryState(*world_, cut, points, choice, seed, tally_);
      if (trouble.empty() && world_->Trouble().empty()) continue;
      Fail(cut_number, choice, trouble + world_->Trouble());
      return;
    }
  }

  std::string Small() const {
    if (options_.small == 0) return "";
    return " --small " + std::to_string(options_.small) + " --every " +
           std::to_string(options_.every);
  }

  void Fail(std::size_t cut, std::size_t choice, const std::string& trouble) {
    ++shared_.failures;
    const std::string state =
        std::to_string(number_) + "." + std::to_string(cut) + "." + std::to_string(choice);
    std::cout << "VIOLATION in state " + state + ", before event " +
                     std::to_string(world_->Cuts().empty() ? 0 : world_->Cuts()[cut].event) +
                     " of " + std::to_string(world_->Log().size()) + "\n  " + trouble +
                     "\n  volume: " + recipe_ +
                     "\n  job: " + (job_.empty() ? "moves anywhere" : job_) +
                     "\n  again: tools/crash" + Small() + " --seed " +
                     std::to_string(options_.seed) + " --state " + state + "\n"
              << std::flush;
  }

  const Options& options_;
  Shared& shared_;
  std::vector<SmallLayout> small_;
  std::uint64_t number_ = 0;
  std::string recipe_;
  std::string job_;
  std::optional<CrashWorld> world_;
  Tally tally_;
};

int Report(const Options& options, const Shared& shared, std::time_t took) {
  const auto text = [](std::uint64_t number) { return std::to_string(number); };
  for (std::size_t i = 0; i < std::size(kVolumes); ++i) {
    const std::uint64_t states = shared.volume_states[i];
    const std::uint64_t spent = std::max<std::uint64_t>(shared.milliseconds[i], 1);
    if (states == 0) continue;
    std::cout << text(states) + " states on " + kVolumes[i].name + ", " +
                     text(states * 1000 / spent) + " a second and core\n";
  }
  std::cout << "Jobs begun again: " + text(shared.resumed) + ", all whole, " +
                   text(shared.same_end) + " in the layout that they have without a crash.\n" +
                   "Journals of other moments: " + text(shared.other_journals) + ", " +
                   text(shared.mistaken) + " mistaken for the volume's own.\n" +
                   text(shared.states) + " crash states in " + text(shared.next_world) +
                   " worlds, seed " + text(options.seed) + ": " + text(shared.recoveries) +
                   " recoveries, " + text(shared.refused) + " refused, " + text(shared.failures) +
                   " violations, " + std::to_string(took) + " s.\n";
  return shared.failures == 0 ? 0 : 1;
}

int Main(const Options& options) {
  // What one state gives back the next one takes.
  ::mallopt(M_TRIM_THRESHOLD, 1 << 28);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 28);
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 2;
  auto& shared = *new (memory) Shared{};
  const std::time_t start = std::time(nullptr);
  if (options.world) {
    Explorer(options, shared).ExploreOne();
    std::cout << (shared.failures == 0 ? "whole\n" : "");
    return shared.failures == 0 ? 0 : 1;
  }
  // Processes, not threads: what a file system's library keeps is each one's own.
  for (unsigned i = 0; i < options.jobs; ++i) {
    if (::fork() != 0) continue;
    Explorer(options, shared).Work();
    ::_exit(0);
  }
  for (int status = 0; ::wait(&status) > 0;) {
    if (status == 0) continue;
    std::cout << "a worker has died: " << status << "\n";
    ++shared.failures;
  }
  return Report(options, shared, std::time(nullptr) - start);
}

std::optional<Options> Parse(int count, char** words) {
  Options options;
  for (int i = 1; i < count; i += 2) {
    const std::string_view word = words[i];
    unsigned long long number = 0, cut = 0, choice = 0;
    char rest = 0;
    if (i + 1 == count) return std::nullopt;
    const char* const value = words[i + 1];
    if (word == "--state") {
      if (std::sscanf(value, "%llu.%llu.%llu%c", &number, &cut, &choice, &rest) != 3) return {};
      options.world = number;
      options.cut = cut;
      options.choice = choice;
      continue;
    }
    if (std::sscanf(value, "%llu%c", &number, &rest) != 1) return std::nullopt;
    if (word == "--states") {
      options.states = number;
    } else if (word == "--seed") {
      options.seed = number;
    } else if (word == "--jobs" && number > 0 && number <= 256) {
      options.jobs = static_cast<unsigned>(number);
    } else if (word == "--small" && number > 0 && number <= 12) {
      options.small = static_cast<int>(number);
    } else if (word == "--every" && number > 0) {
      options.every = number;
    } else {
      return std::nullopt;
    }
  }
  return options;
}

}  // namespace
}  // namespace vornalux::test

int main(int count, char** words) try {
  const auto options = vornalux::test::Parse(count, words);
  if (options) return vornalux::test::Main(*options);
  std::cerr << "usage: crash [--states N | --small CLUSTERS [--every N]] [--seed S] [--jobs J]\n"
               "             [--state WORLD.CUT.CHOICE]\n";
  return 2;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 2;
}
