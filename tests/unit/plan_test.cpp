// SPDX-License-Identifier: GPL-2.0-or-later
// Plans carried out on a model of their own: one number for every cluster.
#include "engine/plan/plan.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <queue>
#include <unordered_map>

#include "unit/rig.h"

namespace vornalux::testing {
namespace {

constexpr int kFree = -1;
constexpr int kBlocked = -2;

// Cluster `second` of a file lies behind its cluster `first` when they are numbered so.
struct Model {
  explicit Model(const plan::Volume& volume)
      : owner(static_cast<std::size_t>(volume.clusters), kFree) {
    for (const plan::Run& run : volume.blocked) {
      for (int i = 0; i < run.length; ++i) At(run.lcn + i) = kBlocked;
    }
    int number = 0;
    for (const plan::FileRuns& file : volume.files) {
      first.push_back(number);
      for (const plan::Run& run : file.runs) {
        for (int i = 0; i < run.length; ++i) At(run.lcn + i) = number++;
      }
    }
    first.push_back(number);
    place.resize(static_cast<std::size_t>(number));
    for (int lcn = 0; lcn < volume.clusters; ++lcn) {
      if (At(lcn) >= 0) place[static_cast<std::size_t>(At(lcn))] = lcn;
    }
  }

  int& At(int lcn) { return owner.at(static_cast<std::size_t>(lcn)); }
  int PlaceOf(int number) const { return place[static_cast<std::size_t>(number)]; }
  int PiecesOf(std::size_t file) const {
    int pieces = first[file] < first[file + 1] ? 1 : 0;
    for (int i = first[file] + 1; i < first[file + 1]; ++i) {
      pieces += PlaceOf(i) != PlaceOf(i - 1) + 1 ? 1 : 0;
    }
    return pieces;
  }
  // False when the clusters are not the file's or the target is not free.
  bool Move(const plan::Move& move) {
    const auto file = static_cast<std::size_t>(move.file);
    for (int i = 0; i < move.length; ++i) {
      const int number = At(move.from + i);
      if (number < first[file] || number >= first[file + 1] || At(move.to + i) != kFree) {
        return false;
      }
    }
    for (int i = 0; i < move.length; ++i) {
      const int number = std::exchange(At(move.from + i), kFree);
      At(move.to + i) = number;
      place[static_cast<std::size_t>(number)] = move.to + i;
    }
    return true;
  }

  std::vector<int> owner;  // of each cluster: a number, free or blocked
  std::vector<int> first;  // number of each file
  std::vector<int> place;  // LCN of each number
};

struct RandomPiece {
  std::size_t file;  // from 1 on; 0 stands for what cannot be moved
  std::int32_t length;
};

// In random order, with what is left of the volume in gaps between.
void LayOut(std::vector<RandomPiece> pieces, plan::Volume& volume, SeededRandom& random) {
  std::int32_t left = volume.clusters;
  for (const RandomPiece& piece : pieces) left -= piece.length;
  random.Shuffle(pieces);
  std::int32_t lcn = 0;
  for (const RandomPiece& piece : pieces) {
    const auto share = std::max(3, volume.clusters / 2000);
    const bool gap = left > 0 && random.Chance(0.5);
    const auto skip = gap ? static_cast<std::int32_t>(random.Below(2 * left / share + 1)) : 0;
    lcn += skip;
    left -= skip;
    auto& runs = piece.file == 0 ? volume.blocked : volume.files[piece.file - 1].runs;
    runs.push_back({lcn, piece.length});
    lcn += piece.length;
  }
}

plan::Volume RandomPlanVolume(SeededRandom& random) {
  plan::Volume volume;
  volume.clusters = static_cast<std::int32_t>(random.Between(10, 3000));
  const auto fill = static_cast<double>(random.Between(20, 99)) / 100;
  std::vector<RandomPiece> pieces;
  volume.files.resize(static_cast<std::size_t>(random.Between(1, 80)));
  std::int32_t left = volume.clusters;
  const std::int32_t free = volume.clusters - static_cast<std::int32_t>(volume.clusters * fill);
  const std::int64_t longest = random.Between(1, 40);
  while (left > free) {
    const auto length =
        static_cast<std::int32_t>(std::min<std::int64_t>(random.Between(1, longest), left - free));
    const bool blocked = random.Chance(0.02);
    const auto file = static_cast<std::size_t>(random.Below(volume.files.size()));
    pieces.push_back({blocked ? 0 : file + 1, length});
    left -= length;
  }
  LayOut(std::move(pieces), volume, random);
  // In an order of their own.
  for (plan::FileRuns& file : volume.files) {
    if (random.Chance(0.7)) random.Shuffle(file.runs);
  }
  return volume;
}

TEST(Plan, KeepsWhatItPromisesAndNothingGetsWorse) {
  ForSeeds(400, [](std::uint64_t seed) {
    SeededRandom random(seed);
    plan::Volume volume = RandomPlanVolume(random);
    plan::Limits limits;
    if (random.Chance(0.3)) limits.clusters = random.Below(volume.clusters);
    const bool compact = random.Chance(0.5);
    const int alignment = random.Chance(0.2) ? static_cast<int>(random.Between(2, 8)) : 1;
    volume.alignment = alignment;
    const plan::Plan plan =
        compact ? plan::PlanCompact(volume, limits) : plan::PlanDefrag(volume, limits);
    Model model(volume);
    const Model begun = model;
    std::vector<int> allowed;  // pieces
    for (std::size_t file = 0; file < volume.files.size(); ++file) {
      allowed.push_back(model.PiecesOf(file));
    }
    std::int64_t moved = 0;
    for (std::size_t i = 0; i < plan.moves.size(); ++i) {
      const plan::PlannedMove& move = plan.moves[i];
      moved += move.length;
      if (move.joined) {  // one request with the next: its target has to be free by now
        ASSERT_LT(i + 1, plan.moves.size());
        ASSERT_EQ(plan.moves[i + 1].file, move.file);
        ASSERT_EQ(plan.moves[i + 1].to, move.to + move.length);
        ASSERT_EQ(model.At(move.from + move.length - 1) + 1, model.At(plan.moves[i + 1].from));
        ASSERT_EQ(model.At(plan.moves[i + 1].to), kFree);
      }
      ASSERT_TRUE(model.Move(move)) << i;
      if (move.unfinished || move.joined) continue;
      for (std::size_t file = 0; file < volume.files.size(); ++file) {
        ASSERT_LE(model.PiecesOf(file), allowed[file]) << i;
        if (model.PiecesOf(file) == 1) allowed[file] = 1;
        if (model.first[file] == model.first[file + 1]) continue;
        const int moved_by = model.PlaceOf(model.first[file]) - begun.PlaceOf(model.first[file]);
        ASSERT_EQ(moved_by % alignment, 0) << i;
      }
    }
    EXPECT_EQ(moved, plan.clusters_moved);
    EXPECT_LE(moved, limits.clusters);
    std::size_t staying = 0;
    std::int64_t pieces = 0;
    const auto free = static_cast<int>(std::ranges::count(model.owner, kFree));
    int longest = 0;
    for (int lcn = 0, length = 0; lcn < volume.clusters; ++lcn) {
      length = model.At(lcn) == kBlocked ? 0 : length + 1;
      longest = std::max(longest, length);
    }
    const std::vector<plan::Staying> anyway =
        compact ? plan::PlanCompact(volume).staying : plan::PlanDefrag(volume).staying;
    for (std::size_t file = 0; file < volume.files.size(); ++file) {
      if (model.PiecesOf(file) < 2) continue;
      pieces += model.PiecesOf(file);
      ASSERT_LT(staying, plan.staying.size());
      const plan::Staying& told = plan.staying[staying++];
      EXPECT_EQ(told.file, static_cast<std::int32_t>(file));
      EXPECT_EQ(told.pieces, model.PiecesOf(file));
      const int size = model.first[file + 1] - model.first[file];
      EXPECT_EQ(told.size, size);
      const bool limited = std::ranges::count(anyway, told.file, &plan::Staying::file) == 0;
      EXPECT_EQ(told.obstacle, limited          ? plan::Obstacle::Limit
                               : size > longest ? plan::Obstacle::Blocked
                               : size > free    ? plan::Obstacle::Space
                                                : plan::Obstacle::NotFound);
    }
    EXPECT_EQ(staying, plan.staying.size());
    EXPECT_EQ(plan.after.pieces, pieces);
    EXPECT_EQ(plan.after.fragmented, static_cast<std::int32_t>(staying));
  });
}

// Nothing that can be moved lies behind the place where the free space could begin, but for one of
// a hundred free clusters.
TEST(Plan, CompactGathersTheFreeSpace) {
  double work = 0;
  ForSeeds(30, [&work](std::uint64_t seed) {
    SeededRandom random(seed);
    plan::Volume volume;
    volume.clusters = 40'000;
    const auto used = static_cast<std::int32_t>(random.Between(50, 95)) * volume.clusters / 100;
    std::vector<RandomPiece> pieces = {{0, 7}, {0, 1}};
    for (std::int32_t sum = 0; sum < used;) {
      auto left = static_cast<std::int32_t>(random.Between(1, random.Chance(0.1) ? 2000 : 80));
      left = std::min(left, used - sum);
      sum += left;
      volume.files.emplace_back();
      const bool whole = random.Chance(0.5);
      while (left > 0) {
        const auto length = whole ? left : static_cast<std::int32_t>(random.Between(1, left));
        pieces.push_back({volume.files.size(), length});
        left -= length;
      }
    }
    LayOut(std::move(pieces), volume, random);
    const plan::Plan plan = plan::PlanCompact(volume);
    EXPECT_EQ(plan.after.fragmented, 0);
    Model model(volume);
    auto left = std::ranges::count_if(model.owner, [](int owner) { return owner >= 0; });
    std::size_t first_free = 0;
    while (left > 0) left -= model.owner[first_free++] != kBlocked ? 1 : 0;
    const auto behind = [&] {
      return std::count_if(model.owner.begin() + static_cast<std::ptrdiff_t>(first_free),
                           model.owner.end(), [](int owner) { return owner >= 0; });
    };
    const double share =
        static_cast<double>(plan.clusters_moved) / static_cast<double>(plan.least_to_move);
    work += share;
    EXPECT_LE(share, 2);
    for (const plan::PlannedMove& move : plan.moves) ASSERT_TRUE(model.Move(move));
    EXPECT_LE(behind(), plan.free / 100);
    if (behind() == 0 && plan.after.fragmented == 0) {
      EXPECT_GE(share, 1);
    }
  });
  EXPECT_LE(work / 30, test::TestSeed(0) == 0 ? 1.3 : 60);
}

// Too near to its place to slide there, and with no room to go aside.
TEST(Plan, CompactEndsWhereAFileIsTooLongToSlide) {
  const plan::Volume volume = {.clusters = 6000, .files = {{.runs = {{1, 5500}}}}, .blocked = {}};
  EXPECT_TRUE(plan::PlanCompact(volume).moves.empty());
}

// Every volume of so many clusters with up to three files, each of its clusters a piece: the way
// with the fewest pieces and the fewest clusters moved, by search from the ends.
class EveryVolume {
 public:
  explicit EveryVolume(int clusters) : clusters_(clusters) {}

  void Check() {
    for (int mask = 0; mask < 1 << clusters_; ++mask) {
      for (int a = 1; a <= clusters_; ++a) {
        for (int b = 0; b <= a; ++b) {
          for (int c = 0; c <= b && a + b + c <= clusters_; ++c) CheckAll(mask, {a, b, c});
        }
      }
    }
  }

 private:
  using State = std::string;  // '.', 'X' or a letter for each cluster of a file

  bool Follows(char first, char second) const {
    return first >= 'a' && second == first + 1 && file_[Index(first)] == file_[Index(second)];
  }
  static std::size_t Index(char letter) { return static_cast<std::size_t>(letter - 'a'); }
  int PiecesOf(const State& state) const {
    auto pieces = static_cast<int>(file_.size());
    for (std::size_t i = 1; i < state.size(); ++i)
      pieces -= Follows(state[i - 1], state[i]) ? 1 : 0;
    return pieces;
  }

  template <typename Visitor>
  void EachMove(const State& state, Visitor visit) const {
    for (std::size_t from = 0; from < state.size(); ++from) {
      if (state[from] < 'a') continue;
      for (std::size_t length = 1; from + length <= state.size(); ++length) {
        if (length > 1 && !Follows(state[from + length - 2], state[from + length - 1])) break;
        for (std::size_t to = 0; to + length <= state.size(); ++to) {
          if (state.substr(to, length) != State(length, '.')) continue;
          State after = state;
          after.replace(to, length, state, from, length);
          after.replace(from, length, length, '.');
          visit(after, static_cast<int>(length));
        }
      }
    }
  }

  void CheckAll(int mask, const std::vector<int>& sizes) {
    file_.clear();
    for (std::size_t file = 0; file < sizes.size(); ++file) {
      file_.insert(file_.end(), static_cast<std::size_t>(sizes[file]), file);
    }
    State empty(static_cast<std::size_t>(clusters_), '.');
    for (std::size_t i = 0; i < empty.size(); ++i) {
      if (mask >> i & 1) empty[i] = 'X';
    }
    std::map<int, std::vector<State>> by_pieces;
    const std::function<void(State&, char)> place = [&](State& state, char letter) {
      if (Index(letter) == file_.size()) return by_pieces[PiecesOf(state)].push_back(state);
      for (char& cluster : state) {
        if (cluster != '.') continue;
        cluster = letter;
        place(state, static_cast<char>(letter + 1));
        cluster = '.';
      }
    };
    place(empty, 'a');
    // From the states of the fewest pieces on: what cannot reach them starts from the next.
    std::unordered_map<State, int> best;
    for (const auto& [pieces, states] : by_pieces) {
      using Entry = std::pair<int, State>;
      std::priority_queue<Entry, std::vector<Entry>, std::greater<>> queue;
      for (const State& state : states) queue.push({0, state});
      while (!queue.empty()) {
        const auto [cost, state] = queue.top();
        queue.pop();
        if (!best.emplace(state, cost).second) continue;
        CheckPlan(state, pieces, cost);
        if (::testing::Test::HasFailure()) return;
        EachMove(state, [&, &cost = cost](const State& before, int length) {
          if (!best.contains(before)) queue.push({cost + length, before});
        });
      }
    }
  }

  void CheckPlan(const State& state, int pieces, int cost) const {
    plan::Volume volume;
    volume.clusters = clusters_;
    volume.files.resize(3);
    for (std::size_t letter = 0; letter < file_.size(); ++letter) {
      const auto lcn = state.find(static_cast<char>('a' + letter));
      volume.files[file_[letter]].runs.push_back({static_cast<std::int32_t>(lcn), 1});
    }
    for (std::size_t lcn = 0; lcn < state.size(); ++lcn) {
      if (state[lcn] == 'X') volume.blocked.push_back({static_cast<std::int32_t>(lcn), 1});
    }
    Model model(volume);
    const plan::Plan plan = plan::PlanDefrag(volume);
    for (const plan::PlannedMove& move : plan.moves) ASSERT_TRUE(model.Move(move)) << state;
    int left = 0;
    for (std::size_t file = 0; file < 3; ++file) left += model.PiecesOf(file);
    EXPECT_EQ(left, pieces) << state;
    EXPECT_LE(2 * plan.clusters_moved, 3 * cost) << state;
  }

  int clusters_;
  std::vector<std::size_t> file_;  // of each letter
};

// VORNALUX_PLAN_CLUSTERS asks for larger ones: 8 take minutes.
TEST(Plan, OfEverySmallVolumeIsTheBest) {
  const char* const most = std::getenv("VORNALUX_PLAN_CLUSTERS");
  for (int clusters = 1; clusters <= (most != nullptr ? std::atoi(most) : 6); ++clusters) {
    EveryVolume(clusters).Check();
  }
}

}  // namespace
}  // namespace vornalux::testing
