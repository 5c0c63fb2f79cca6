// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/random_volume.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "host/simulated/seeded_random.h"

namespace vornalux {

namespace {

// Shares out total in proportion to the weights, rounding down.
std::vector<std::int64_t> ShareOut(std::int64_t total, std::vector<std::int64_t> weights) {
  const std::int64_t sum = std::accumulate(weights.begin(), weights.end(), std::int64_t{0});
  for (std::int64_t& weight : weights) weight = sum == 0 ? 0 : weight * total / sum;
  return weights;
}

// Cuts every stream into pieces, shuffles all pieces and lays them out over the volume with gaps
// between them: any fill and fragmentation in time linear in the pieces.
class Layout {
 public:
  Layout(const RandomVolumeOptions& options, SeededRandom& random)
      : options_(options), random_(random) {}

  // Streams are taken out in the order in which they were added.
  void AddStream(std::int64_t clusters) {
    std::int64_t pieces = 1;
    if (clusters > 1 && options_.most_pieces > 1 && random_.Chance(options_.fragmented)) {
      pieces = random_.Between(2, std::min(clusters, options_.most_pieces));
    }
    for (; pieces > 0 && clusters > 0; --pieces) {
      const std::int64_t most = clusters - (pieces - 1);
      const std::int64_t length = pieces == 1 ? clusters : random_.Between(1, most);
      pieces_.push_back({-1, length});
      clusters -= length;
    }
    ends_.push_back(pieces_.size());
  }

  void Place() {
    std::vector<std::uint32_t> order(pieces_.size());
    std::iota(order.begin(), order.end(), 0U);
    random_.Shuffle(order);

    std::int64_t used = 0;
    for (const SimulatedRun& piece : pieces_) used += piece.count;
    std::vector<std::int64_t> gaps(pieces_.size() + 1);
    for (std::int64_t& gap : gaps) {
      gap = random_.Chance(0.6) ? 0 : std::int64_t{1} << random_.Below(12);
    }
    gaps = ShareOut(options_.geometry.total_clusters - used, std::move(gaps));

    std::int64_t lcn = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
      lcn += gaps[i];
      pieces_[order[i]].lcn = lcn;
      lcn += pieces_[order[i]].count;
    }
  }

  std::vector<SimulatedRun> TakeStream() {
    const auto first = pieces_.begin() + static_cast<std::ptrdiff_t>(taken_);
    taken_ = ends_[next_++];
    return {first, pieces_.begin() + static_cast<std::ptrdiff_t>(taken_)};
  }

 private:
  const RandomVolumeOptions& options_;
  SeededRandom& random_;
  std::vector<SimulatedRun> pieces_;
  std::vector<std::size_t> ends_;  // in pieces_, of each stream
  std::size_t next_ = 0;
  std::size_t taken_ = 0;
};

class RandomVolumeMaker {
 public:
  RandomVolumeMaker(const RandomVolumeOptions& options, std::uint64_t seed)
      : options_(options), random_(seed), layout_(options_, random_) {
    const std::int64_t total = options_.geometry.total_clusters;
    NtfsVolumeData& zone = options_.geometry.mft_zone;
    if (zone.mft_zone_end == 0) zone = {.mft_zone_start = total / 8, .mft_zone_end = total / 4};
    ntfs_ = options_.geometry.file_system == "NTFS";
  }

  std::unique_ptr<SimulatedVolume> Make() {
    volume_ = std::make_unique<SimulatedVolume>(options_.geometry);
    PlanStreams();
    layout_.Place();
    if (HasMft()) volume_->AddMft(layout_.TakeStream());
    AddFolders();
    for (std::int64_t i = 0; i < options_.files; ++i) AddFile(i);
    return std::move(volume_);
  }

 private:
  bool HasMft() const { return ntfs_ && options_.mft; }

  void PlanStreams() {
    const std::int64_t total = options_.geometry.total_clusters;
    auto left = static_cast<std::int64_t>(static_cast<double>(total) * options_.fill);
    if (HasMft()) {
      const std::int64_t mft = std::min(left, std::max<std::int64_t>(20, options_.files / 4));
      layout_.AddStream(mft);
      left -= mft;
    }
    for (std::int64_t i = 0; i < options_.folders; ++i) {
      const std::int64_t clusters = std::min(left, random_.Below(3));
      layout_.AddStream(clusters);
      left -= clusters;
    }
    std::vector<std::int64_t> weights(static_cast<std::size_t>(options_.files));
    for (std::int64_t& weight : weights) {
      // Most files are small, a few hold most of the clusters.
      const std::int64_t scale = std::int64_t{1} << (random_.Below(6) + random_.Below(6));
      weight = random_.Chance(options_.resident) ? 0 : random_.Between(1, 4) * scale;
    }
    for (std::int64_t clusters : ShareOut(left, std::move(weights))) layout_.AddStream(clusters);
  }

  void AddFolders() {
    folders_.push_back(volume_->Root());
    for (std::int64_t i = 0; i < options_.folders; ++i) {
      const ItemId parent = AnyFolder();
      folders_.push_back(volume_->AddItem(parent, "folder" + std::to_string(i),
                                          layout_.TakeStream(), attribute::kDirectory));
    }
  }

  ItemId AnyFolder() {
    return folders_[static_cast<std::size_t>(
        random_.Below(static_cast<std::int64_t>(folders_.size())))];
  }

  void AddFile(std::int64_t number) {
    std::vector<SimulatedRun> runs = layout_.TakeStream();
    // A stream of its own comes out of the file's clusters.
    std::vector<SimulatedRun> stream;
    if (ntfs_ && random_.Chance(options_.with_stream) && runs.size() > 1) {
      stream.assign(runs.begin() + 1, runs.end());
      runs.resize(1);
    }
    std::uint32_t attributes = attribute::kArchive;
    if (!runs.empty() && random_.Chance(options_.with_holes)) {
      const auto at = random_.Below(static_cast<std::int64_t>(runs.size()) + 1);
      runs.insert(runs.begin() + static_cast<std::ptrdiff_t>(at), {-1, random_.Between(1, 64)});
      attributes |= attribute::kSparse;
    }
    if (random_.Chance(options_.reparse)) attributes |= attribute::kReparsePoint;
    const ItemId file =
        volume_->AddItem(AnyFolder(), "file" + std::to_string(number), runs, attributes);
    if (!stream.empty()) volume_->AddStream(file, "stream", stream);
    if (random_.Chance(options_.locked)) volume_->Lock(file);
    if (random_.Chance(options_.immovable)) volume_->MakeImmovable(file);
  }

  RandomVolumeOptions options_;
  SeededRandom random_;
  Layout layout_;
  std::unique_ptr<SimulatedVolume> volume_;
  std::vector<ItemId> folders_;
  bool ntfs_ = false;
};

}  // namespace

std::unique_ptr<SimulatedVolume> MakeRandomVolume(const RandomVolumeOptions& options,
                                                  std::uint64_t seed) {
  return RandomVolumeMaker(options, seed).Make();
}

}  // namespace vornalux
