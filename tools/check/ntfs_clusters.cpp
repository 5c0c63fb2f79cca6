// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_clusters.h"

#include <algorithm>

#include "check/ntfs_stream.h"

namespace vornalux::checking {
namespace {

struct OwnedRun {
  std::int64_t lcn = 0;
  std::int64_t count = 0;
  const NtfsFile* file = nullptr;
  const NtfsStream* stream = nullptr;
};

std::string Owner(const OwnedRun& run) {
  return NameStream(run.file->number, run.stream->type, run.stream->name);
}

std::vector<OwnedRun> OwnedRuns(const NtfsFiles& files) {
  std::vector<OwnedRun> runs;
  for (const NtfsFile& file : files.All()) {
    for (const NtfsStream& stream : file.streams) {
      for (const CheckedExtent& extent : stream.extents) {
        if (extent.lcn >= 0) runs.push_back({extent.lcn, extent.count, &file, &stream});
      }
    }
  }
  std::sort(runs.begin(), runs.end(),
            [](const OwnedRun& a, const OwnedRun& b) { return a.lcn < b.lcn; });
  return runs;
}

// The first cluster of [from, to) that is not marked as wanted; to when there is none.
std::int64_t FirstMismatch(const std::vector<std::uint8_t>& bits, std::int64_t from,
                           std::int64_t to, bool wanted) {
  const std::uint8_t whole = wanted ? 0xFF : 0;
  for (std::int64_t lcn = from; lcn < to;) {
    const std::uint8_t byte = bits[static_cast<std::size_t>(lcn / 8)];
    if (byte == whole && lcn % 8 == 0 && to - lcn >= 8) {
      lcn += 8;
      continue;
    }
    if (((byte >> (lcn % 8) & 1) != 0) != wanted) return lcn;
    ++lcn;
  }
  return to;
}

// Calls report(first, count) for each range of [from, to) that is not marked as wanted.
template <typename Report>
void ForMismatches(const std::vector<std::uint8_t>& bits, std::int64_t from, std::int64_t to,
                   bool wanted, Report report) {
  while (from < to) {
    const std::int64_t first = FirstMismatch(bits, from, to, wanted);
    if (first == to) return;
    from = FirstMismatch(bits, first, to, !wanted);
    report(first, from - first);
  }
}

}  // namespace

ClusterCount CheckNtfsClusters(const RawNtfsVolume& volume, const NtfsFiles& files,
                               Problems& problems) {
  ClusterCount result;
  const std::int64_t clusters = volume.geometry.clusters;
  const NtfsFile* file = files.Find(ntfs::kBitmapRecord);
  const NtfsStream* data = file == nullptr ? nullptr : file->Find(ntfs::kData);
  const std::uint64_t needed = (static_cast<std::uint64_t>(clusters) + 7) / 8;
  auto bits = data == nullptr ? std::nullopt : ReadWhole(volume, *data, needed + (1U << 20));
  const bool known = bits && bits->size() >= needed;
  if (!known) problems.Add("$Bitmap: missing, too short or unreadable");
  if (!known) bits.emplace(static_cast<std::size_t>(needed));

  const auto leaked = [&](std::int64_t lcn, std::int64_t count) {
    problems.Add("$Bitmap: LCN ", lcn, ", ", count, " clusters: marked in use but nobody's");
  };
  std::int64_t end = 0;  // of everything owned so far
  const OwnedRun* last = nullptr;
  const std::vector<OwnedRun> runs = OwnedRuns(files);
  for (const OwnedRun& run : runs) {
    if (run.lcn < end) {
      problems.Add("LCN ", run.lcn, ", ", std::min(end, run.lcn + run.count) - run.lcn,
                   " clusters: belong to ", Owner(*last), " and to ", Owner(run));
    }
    if (known) {
      if (run.lcn > end) ForMismatches(*bits, end, run.lcn, false, leaked);
      ForMismatches(*bits, run.lcn, run.lcn + run.count, true,
                    [&](std::int64_t lcn, std::int64_t count) {
                      problems.Add("$Bitmap: LCN ", lcn, ", ", count,
                                   " clusters: marked free but owned by ", Owner(run));
                    });
    }
    const std::int64_t run_end = run.lcn + run.count;
    result.used += std::max<std::int64_t>(0, run_end - std::max(end, run.lcn));
    if (run.file->number == ntfs::kBadClusterRecord) result.bad += run.count;
    if (run_end > end) {
      end = run_end;
      last = &run;
    }
  }
  if (known) ForMismatches(*bits, end, clusters, false, leaked);
  return result;
}

}  // namespace vornalux::checking
