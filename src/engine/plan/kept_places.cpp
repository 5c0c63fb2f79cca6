// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/kept_places.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace vornalux::plan {
namespace {

constexpr std::int32_t kNone = ClusterSpace::kNone;
constexpr int kRounds = 8;  // until no file has two places

std::size_t Index(std::int32_t number) { return static_cast<std::size_t>(number); }

// Places that do not meet, with the largest sum of what they are worth: for each, by its end, the
// most that can be had up to there.
class Choosing {
 public:
  Choosing(const ClusterSpace& space, std::int32_t ceiling, const Keeping& keeping)
      : space_(space), ceiling_(ceiling), keeping_(keeping) {
    space.Visit(0, [&](const ClusterSpace::Piece& piece) {
      if (piece.file == ClusterSpace::kBlocked) blocked_.push_back(piece.Clusters());
      return piece.lcn < ceiling;
    });
    for (std::int32_t file = 0; file < space.FileCount(); ++file) AddPlacesOf(file);
    std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) {
      return a.end != b.end ? a.end < b.end : a.lcn < b.lcn;
    });
    most_.resize(places_.size() + 1);
    below_.reserve(places_.size());
    for (const Place& place : places_) {
      const auto first =
          std::partition_point(places_.begin(), places_.begin() + std::ssize(below_),
                               [&](const Place& other) { return other.end <= place.lcn; });
      below_.push_back(static_cast<std::int32_t>(first - places_.begin()));
    }
  }

  // The sum for the best ones.
  std::int64_t Choose() {
    chosen_.clear();
    for (std::size_t i = 0; i < places_.size(); ++i) {
      most_[i + 1] = std::max(most_[i], most_[Index(below_[i])] + places_[i].worth);
    }
    for (std::size_t i = places_.size(); i > 0;) {
      if (most_[i] == most_[i - 1]) {
        --i;
        continue;
      }
      chosen_.push_back(static_cast<std::int32_t>(i - 1));
      i = Index(below_[i - 1]);
    }
    std::reverse(chosen_.begin(), chosen_.end());
    return most_.back();
  }

  // Leaves each file the best of those that were chosen. False when all had one only.
  bool DropSecondOnes() {
    std::vector<std::int32_t> of_file(Index(space_.FileCount()), kNone);
    bool any = false;
    for (const std::int32_t number : chosen_) {
      std::int32_t& best = of_file[Index(places_[Index(number)].file)];
      if (best == kNone) {
        best = number;
        continue;
      }
      any = true;
      const bool better = places_[Index(number)].worth > places_[Index(best)].worth;
      places_[Index(better ? std::exchange(best, number) : number)].worth = 0;
    }
    return any;
  }

  std::vector<KeptPlace> Chosen() const {
    std::vector<KeptPlace> chosen;
    for (const std::int32_t number : chosen_) {
      const Place& place = places_[Index(number)];
      if (place.worth > 0) chosen.push_back(place);
    }
    return chosen;
  }

 private:
  struct Place : KeptPlace {
    std::int32_t worth = 0;
  };

  bool IsBlocked(const Run& run) const {
    const auto above = std::partition_point(blocked_.begin(), blocked_.end(),
                                            [&](const Run& each) { return each.lcn < run.End(); });
    return above != blocked_.begin() && std::prev(above)->End() > run.lcn;
  }

  void AddPlacesOf(std::int32_t file) {
    const std::int32_t size = space_.SizeOf(file);
    const std::int32_t first = space_.FirstPiece(file);
    std::vector<Place> places;
    std::int32_t offset = 0;
    for (std::int32_t piece = first; piece != kNone; piece = space_.At(piece).next) {
      const Run run = space_.At(piece).Clusters();
      const std::int32_t start = run.lcn - offset;
      offset += run.length;
      if (start < 0 || start > ceiling_ - size || IsBlocked({start, size})) continue;
      if (space_.AlignedUp(start, space_.At(first).lcn) != start) continue;
      places.push_back({{start, start + size, file, run.length}});
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.lcn < b.lcn; });
    for (std::size_t i = 0; i < places.size();) {
      Place place = places[i];
      for (++i; i < places.size() && places[i].lcn == place.lcn; ++i) place.kept += places[i].kept;
      if (place.kept < keeping_.share * size) continue;
      place.worth = place.kept - (space_.IsFragmented(file) ? keeping_.clusters : 0);
      if (place.worth > 0) places_.push_back(place);
    }
  }

  const ClusterSpace& space_;
  std::int32_t ceiling_;
  Keeping keeping_;
  std::vector<Run> blocked_;
  std::vector<Place> places_;        // by end
  std::vector<std::int32_t> below_;  // how many end where this one begins, or before
  std::vector<std::int64_t> most_;   // of the first places
  std::vector<std::int32_t> chosen_;
};

}  // namespace

std::vector<KeptPlace> MostKept(const ClusterSpace& space, std::int32_t ceiling,
                                const Keeping& keeping) {
  Choosing choosing(space, ceiling, keeping);
  for (int round = 0; round < kRounds; ++round) {
    choosing.Choose();
    if (!choosing.DropSecondOnes()) break;
  }
  return choosing.Chosen();
}

std::int64_t LeastToMove(const ClusterSpace& space, std::int32_t ceiling) {
  std::int64_t clusters = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) clusters += space.SizeOf(file);
  // That a file may be counted twice here only makes it less.
  return clusters - Choosing(space, ceiling, {}).Choose();
}

}  // namespace vornalux::plan
