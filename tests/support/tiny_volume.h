// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "host/image/volume/image_volume.h"
#include "support/devices.h"

namespace vornalux::test {

// The smallest file system that can be wrong in every way that matters: files with run lists, an
// allocation bitmap, a dirty flag, and a counter of moves that is kept twice, in the header and
// inside the first cluster of file 0, as folders keep metadata in clusters. Content follows from
// file and VCN, so that a stranger can judge it.
//
//   sector 0      byte 0: dirty flag; bytes 8..15: counter
//   sector 1      allocation bitmap; the number of clusters is a multiple of 8
//   sector 2 + f  file f: u32 run count, then u32 lcn (all ones: a hole), u32 count for each run
//   from kFirstCluster on: clusters of 1024 bytes
class TinyVolume final : public ImageVolume {
 public:
  static constexpr std::uint64_t kClusterSize = 1024;
  static constexpr int kFiles = 6;
  static constexpr std::size_t kMaxRuns = 12;
  static constexpr std::uint64_t kFirstCluster = 16 * 512;

  explicit TinyVolume(VolumeStore store);
  ~TinyVolume() override { Close(); }

  static VolumeIdentity Identity() { return {{'T', 'I', 'N', 'Y'}, 7, 0, 0, {}, "here"}; }
  static std::size_t SizeOf(std::int64_t clusters) {
    return kFirstCluster + static_cast<std::size_t>(clusters) * kClusterSize;
  }
  // A volume with files of random length in random places, with holes.
  static Bytes Format(Random& random, std::int64_t clusters);
  // What is wrong with a volume; empty when nothing is. Shares no code with the rest.
  static std::string Judge(const Bytes& volume);

  static StreamRef File(int number) { return {static_cast<ItemId>(number), {}}; }

  const VolumeFacts& Facts() const override { return facts_; }
  std::optional<NtfsVolumeData> NtfsData() const override { return std::nullopt; }
  ItemId Root() const override { return 0; }
  ErrorCode List(ItemId, FolderListing&) override { return error::kNotSupported; }
  std::string FoldName(std::string_view name) const override { return std::string(name); }
  std::optional<FolderItem> HiddenItem(ItemId, std::string_view) override { return std::nullopt; }
  ErrorCode StreamNames(ItemId, std::vector<std::string>&) override { return error::kNotSupported; }
  ErrorCode Read(const StreamRef&, std::uint64_t, std::span<std::uint8_t>, std::size_t&) override {
    return error::kNotSupported;
  }
  bool Dirty() const override { return dirty_; }

  // For tests of what the base class does with answers like these.
  std::vector<ClusterRun> lie;  // when not empty: the runs of every file
  int reloads = 0;
  bool fail_reload = false;

  using ImageVolume::Clusters;
  using ImageVolume::Device;

 protected:
  ErrorCode Runs(const StreamRef& stream, std::vector<ClusterRun>& out) override;
  ErrorCode MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t count) override;
  ErrorCode Rewrite(const StreamRef& stream, const MovePlan& plan) override;
  ErrorCode Reload() override;
  ErrorCode WriteDirtyFlag(bool dirty) override;
  std::vector<ByteRange> StillRanges() override { return {{0, kFirstCluster}}; }

 private:
  ErrorCode WriteBitmap();
  ErrorCode CountMove();

  VolumeFacts facts_;
  bool dirty_ = false;
};

// A volume and its journal in memory.
struct TinyWorld {
  explicit TinyWorld(Bytes content) : device(std::move(content)) {}

  // Opens the volume; log notes what is done to volume (0) and journal (1).
  std::unique_ptr<TinyVolume> Open(DeviceLog* log = nullptr, BlockDevice* instead = nullptr,
                                   bool recovering = false);
  // What a program does that finds a journal. Says what went wrong.
  std::string Recover(DeviceLog* log = nullptr);

  MemoryDevice device;
  MemoryJournal journal;
  CommitLimits limits{.clock = [] { return 0; }};
};

}  // namespace vornalux::test
