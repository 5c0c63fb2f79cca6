// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/tiny_volume.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "host/image/device/little_endian.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::uint32_t kHole = 0xFFFFFFFF;
constexpr int kImmovableFile = 5;

std::uint64_t FileSector(std::uint64_t file) { return (2 + file) * kSector; }

std::size_t ClusterAt(std::int64_t lcn) {
  return TinyVolume::kFirstCluster + static_cast<std::size_t>(lcn) * TinyVolume::kClusterSize;
}

std::uint8_t ContentByte(int file, std::int64_t vcn, std::size_t at) {
  const std::uint64_t mixed =
      (static_cast<std::uint64_t>(file) * 1000003 + static_cast<std::uint64_t>(vcn) * 7919 + at) *
      0x9E3779B97F4A7C15;
  return static_cast<std::uint8_t>(mixed >> 56);
}

bool HoldsCounter(int file, std::int64_t vcn, std::size_t at) {
  return file == 0 && vcn == 0 && at < 8;
}

void PutRuns(std::span<std::uint8_t> entry, const std::vector<ClusterRun>& runs) {
  StoreLittle<std::uint32_t>(entry, 0, static_cast<std::uint32_t>(runs.size()));
  std::size_t at = 4;
  for (const ClusterRun& run : runs) {
    StoreLittle<std::uint32_t>(entry, at, static_cast<std::uint32_t>(run.lcn));
    StoreLittle<std::uint32_t>(entry, at + 4, static_cast<std::uint32_t>(run.count));
    at += 8;
  }
}

}  // namespace

TinyVolume::TinyVolume(VolumeStore store) : ImageVolume(std::move(store)) {
  const std::uint64_t clusters = (Device().Size() - kFirstCluster) / kClusterSize;
  SetClusters(static_cast<std::int64_t>(clusters), kClusterSize, kFirstCluster);
  std::array<std::uint8_t, 1> flag{};
  Device().Read(0, flag);
  dirty_ = flag[0] != 0;
  Reload();
}

Bytes TinyVolume::Format(Random& random, std::int64_t clusters) {
  Bytes volume(SizeOf(clusters));
  std::vector<std::uint32_t> places(static_cast<std::size_t>(clusters));
  std::iota(places.begin(), places.end(), 0U);
  std::shuffle(places.begin(), places.end(), random);
  for (int file = 0; file < kFiles; ++file) {
    std::vector<ClusterRun> runs;
    for (auto left = 1 + Below(random, 6); left > 0; --left) {
      const auto vcn = static_cast<std::int64_t>(runs.size());
      const bool hole = vcn > 0 && Below(random, 4) == 0;
      const std::int64_t lcn = hole ? -1 : std::int64_t{places.back()};
      runs.push_back({vcn, lcn, 1});
      if (hole) continue;
      places.pop_back();
      volume[kSector + static_cast<std::size_t>(lcn / 8)] |=
          static_cast<std::uint8_t>(1 << lcn % 8);
      for (std::size_t at = 0; at < kClusterSize; ++at) {
        volume[ClusterAt(lcn) + at] =
            HoldsCounter(file, vcn, at) ? std::uint8_t{0} : ContentByte(file, vcn, at);
      }
    }
    PutRuns(std::span(volume).subspan(FileSector(static_cast<std::uint64_t>(file))), runs);
  }
  return volume;
}

std::string TinyVolume::Judge(const Bytes& volume) {
  std::array<std::uint8_t, kSector> bitmap{};
  for (int file = 0; file < kFiles; ++file) {
    const std::string name = "file " + std::to_string(file);
    const auto entry =
        std::span(volume).subspan(FileSector(static_cast<std::uint64_t>(file)), kSector);
    std::int64_t vcn = 0;
    for (std::uint32_t run = 0; run < LoadLittle<std::uint32_t>(entry, 0); ++run) {
      const std::uint32_t start = LoadLittle<std::uint32_t>(entry, 4 + run * 8);
      const std::uint32_t count = LoadLittle<std::uint32_t>(entry, 8 + run * 8);
      for (std::uint32_t i = 0; i < count; ++i, ++vcn) {
        if (start == kHole) continue;
        const std::uint32_t lcn = start + i;
        if (ClusterAt(lcn) >= volume.size()) return name + " leaves the volume";
        const std::uint8_t bit = static_cast<std::uint8_t>(1 << lcn % 8);
        if (bitmap[lcn / 8] & bit) return "two owners of cluster " + std::to_string(lcn);
        bitmap[lcn / 8] |= bit;
        for (std::size_t at = 0; at < kClusterSize; ++at) {
          const std::uint8_t wanted =
              HoldsCounter(file, vcn, at) ? volume[8 + at] : ContentByte(file, vcn, at);
          if (volume[ClusterAt(lcn) + at] == wanted) continue;
          return name + ": wrong byte " + std::to_string(at) + " of VCN " + std::to_string(vcn) +
                 " in cluster " + std::to_string(lcn);
        }
      }
    }
  }
  const bool same = std::equal(bitmap.begin(), bitmap.end(), volume.begin() + kSector);
  return same ? "" : "the bitmap does not agree with the files";
}

ErrorCode TinyVolume::Runs(const StreamRef& stream, std::vector<ClusterRun>& out) {
  out = lie;
  if (!lie.empty()) return error::kSuccess;
  if (stream.item >= kFiles) return error::kFileNotFound;
  std::array<std::uint8_t, kSector> entry;
  if (const auto code = Device().Read(FileSector(stream.item), entry)) return FromDevice(code);
  std::int64_t vcn = 0;
  for (std::uint32_t run = 0; run < LoadLittle<std::uint32_t>(entry, 0); ++run) {
    const std::uint32_t lcn = LoadLittle<std::uint32_t>(entry, 4 + run * 8);
    const std::uint32_t count = LoadLittle<std::uint32_t>(entry, 8 + run * 8);
    out.push_back({vcn, lcn == kHole ? -1 : static_cast<std::int64_t>(lcn), count});
    vcn += count;
  }
  return error::kSuccess;
}

ErrorCode TinyVolume::MayMove(const StreamRef& stream, std::int64_t, std::int64_t) {
  return stream.item == kImmovableFile ? error::kAccessDenied : error::kSuccess;
}

ErrorCode TinyVolume::Rewrite(const StreamRef& stream, const MovePlan& plan) {
  Clusters().Use(plan.target_lcn, plan.target_count);
  for (const ClusterRun& run : plan.sources) Clusters().Free(run.lcn, run.count);
  if (const ErrorCode code = WriteBitmap()) return code;
  // Too late on purpose: what was done so far must be taken back.
  if (plan.after.size() > kMaxRuns) return error::kDiskFull;
  std::array<std::uint8_t, kSector> entry{};
  PutRuns(entry, plan.after);
  if (const auto code = Device().Write(FileSector(stream.item), entry)) return FromDevice(code);
  return CountMove();
}

ErrorCode TinyVolume::WriteBitmap() {
  Bytes bytes(static_cast<std::size_t>(Clusters().Clusters() / 8));
  Clusters().Copy(0, bytes);
  // In single bytes, as unaligned as it gets.
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto code = Device().Write(kSector + i, std::span(bytes).subspan(i, 1));
    if (code) return FromDevice(code);
  }
  return error::kSuccess;
}

ErrorCode TinyVolume::CountMove() {
  std::array<std::uint8_t, 8> counter;
  if (const auto code = Device().Read(8, counter)) return FromDevice(code);
  StoreLittle<std::uint64_t>(counter, 0, LoadLittle<std::uint64_t>(counter, 0) + 1);
  if (const auto code = Device().Write(8, counter)) return FromDevice(code);
  std::vector<ClusterRun> runs;
  if (const ErrorCode code = Runs(File(0), runs)) return code;
  return FromDevice(Device().Write(ClusterOffset(runs.front().lcn), counter));
}

ErrorCode TinyVolume::Reload() {
  ++reloads;
  if (fail_reload) return error::kReadFault;
  Bytes bytes(static_cast<std::size_t>(Clusters().Clusters() / 8));
  if (const auto code = Device().Read(kSector, bytes)) return FromDevice(code);
  Clusters().Load(0, bytes);
  return error::kSuccess;
}

ErrorCode TinyVolume::WriteDirtyFlag(bool dirty) {
  const std::uint8_t flag = dirty ? 1 : 0;
  return FromDevice(Device().Write(0, {&flag, 1}));
}

std::unique_ptr<TinyVolume> TinyWorld::Open(DeviceLog* log, BlockDevice* instead, bool recovering) {
  VolumeStore store;
  journal.log = log;
  store.device = std::make_unique<RecordingDevice>(instead ? *instead : device, log, 0);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal);
  store.identity = TinyVolume::Identity();
  store.recovering = recovering;
  store.limits = limits;
  return std::make_unique<TinyVolume>(std::move(store));
}

std::string TinyWorld::Recover(DeviceLog* log) {
  if (!journal.exists) return device.Content()[0] == 0 ? "" : "dirty without a journal";
  RecordingDevice volume(device, log, 0);
  RecordingDevice store(journal.store, log, 1);
  const JournalFinding finding = RedoJournal(store, volume).Recover(TinyVolume::Identity());
  if (finding.error) return finding.error.message();
  if (finding.state == JournalState::Empty) {
    return device.Content()[0] == 0 ? "" : "dirty with an empty journal";
  }
  if (finding.state != JournalState::Idle && finding.state != JournalState::Replayed) {
    return finding.detail;
  }
  if (const ErrorCode code = Open(log, nullptr, true)->Recover()) {
    return "error " + std::to_string(code);
  }
  if (journal.exists) return "the journal was not removed";
  return device.Content()[0] == 0 ? "" : "still dirty";
}

}  // namespace vornalux::test
