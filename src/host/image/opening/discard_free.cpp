// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/discard_free.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "host/image/device/window_device.h"
#include "host/image/drive/discard_limits.h"
#include "host/image/drive/sysfs.h"
#include "host/image/opening/image_file.h"
#include "host/image/opening/journal_file.h"
#include "host/image/opening/leftover_journal.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kFileUnit = 4096;
constexpr std::uint64_t kLongest = std::uint64_t{1} << 30;  // bytes between two looks at the user
constexpr std::size_t kLookAgain = 1000;                    // ranges until who else is there
constexpr std::uint64_t kStatBlock = 512;

// In bytes of the file or device.
using Ranges = std::vector<ByteRange>;

[[noreturn]] void Refuse(const ImageSource& source, const std::string& why) {
  throw VolumeRefused(source.path + " " + why);
}

std::optional<std::uint64_t> Stored(const ImageSource& source) {
  struct stat status {};
  if (source.file->IsBlockDevice() || ::fstat(source.file->Descriptor(), &status) != 0) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.st_blocks) * kStatBlock;
}

Ranges FreeRanges(const ImageVolume& volume, std::uint64_t offset) {
  constexpr std::int64_t kPiece = 1 << 20;  // clusters
  const std::int64_t total = volume.Facts().total_clusters;
  std::vector<std::uint8_t> bits(kPiece / 8);
  Ranges ranges;
  for (std::int64_t first = 0; first < total; first += kPiece) {
    volume.CopyBitmap(first, bits);
    for (std::int64_t i = 0; i < std::min(kPiece, total - first); ++i) {
      if ((bits[static_cast<std::size_t>(i / 8)] >> (i % 8) & 1) != 0) continue;
      const std::uint64_t at = offset + volume.ClusterOffset(first + i);
      if (!ranges.empty() && ranges.back().offset + ranges.back().length == at) {
        ranges.back().length += volume.ClusterSize();
      } else {
        ranges.push_back({at, volume.ClusterSize()});
      }
    }
  }
  return ranges;
}

std::uint64_t Sum(const Ranges& ranges) {
  std::uint64_t sum = 0;
  for (const ByteRange& range : ranges) sum += range.length;
  return sum;
}

// Only what is free as a whole: of the rest something would have to be written.
Ranges WholeUnits(const Ranges& ranges, const DiscardLimits& limits) {
  const auto unit = [&](std::uint64_t at) {
    return (at + limits.unit - limits.first) % limits.unit;
  };
  Ranges whole;
  for (const ByteRange& range : ranges) {
    const std::uint64_t first = range.offset + (limits.unit - unit(range.offset)) % limits.unit;
    const std::uint64_t end = range.offset + range.length;
    const std::uint64_t last = end - std::min(end, unit(end));
    if (first < last) whole.push_back({first, last - first});
  }
  return whole;
}

// Calls out(offset, length) for all that the file's system keeps blocks for, in order. False when
// it does not say.
template <typename Out>
bool EachStoredRange(int descriptor, Out out) {
  constexpr std::size_t kExtents = 512;
  std::vector<std::byte> room(sizeof(fiemap) + kExtents * sizeof(fiemap_extent));
  auto* const map = reinterpret_cast<fiemap*>(room.data());
  std::uint64_t from = 0;
  for (;;) {
    *map = {};
    map->fm_start = from;
    map->fm_length = FIEMAP_MAX_OFFSET - from;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = kExtents;
    if (::ioctl(descriptor, FS_IOC_FIEMAP, map) != 0) return false;
    if (map->fm_mapped_extents == 0) return true;
    for (std::uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
      const fiemap_extent& extent = map->fm_extents[i];
      if (extent.fe_logical + extent.fe_length <= from) return false;
      out(extent.fe_logical, extent.fe_length);
      from = extent.fe_logical + extent.fe_length;
      if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0) return true;
    }
  }
}

// The same by what can be told of holes, which leaves out room that was never written to.
template <typename Out>
void EachDataRange(int descriptor, Out out) {
  for (off_t at = ::lseek(descriptor, 0, SEEK_DATA); at >= 0;) {
    const off_t end = ::lseek(descriptor, at, SEEK_HOLE);
    if (end < 0) return;
    out(static_cast<std::uint64_t>(at), static_cast<std::uint64_t>(end - at));
    at = ::lseek(descriptor, end, SEEK_DATA);
  }
}

std::uint64_t StoredIn(int descriptor, const Ranges& ranges) {
  std::uint64_t sum = 0;
  auto next = ranges.begin();
  const auto count = [&](std::uint64_t offset, std::uint64_t length) {
    while (next != ranges.end() && next->offset + next->length <= offset) ++next;
    for (auto range = next; range != ranges.end() && range->offset < offset + length; ++range) {
      sum += std::min(range->offset + range->length, offset + length) -
             std::max(range->offset, offset);
    }
  };
  if (EachStoredRange(descriptor, count)) return sum;
  sum = 0;
  next = ranges.begin();
  EachDataRange(descriptor, count);
  return sum;
}

void Discard(const ImageSource& source, const Ranges& ranges, const std::function<bool()>& stop,
             DiscardResult& result) try {
  WindowDevice window(source.file, source.offset, source.length);
  std::size_t done = 0;
  for (const ByteRange& range : ranges) {
    for (std::uint64_t at = 0; at < range.length; at += kLongest) {
      result.stopped = stop && stop();
      if (result.stopped) return;
      if (++done % kLookAgain == 0) RefuseChanged(source);
      const std::uint64_t length = std::min(kLongest, range.length - at);
      const std::error_code error = window.GiveBack(range.offset - source.offset + at, length);
      if (!error) {
        result.discarded += length;
        continue;
      }
      result.cannot = error == std::errc::operation_not_supported;
      result.failed = !result.cannot;
      result.note = result.cannot ? "the file system that the image lies on makes no holes in files"
                                  : error.message();
      return;
    }
  }
} catch (const VolumeRefused& refused) {
  result.failed = true;
  result.note = refused.what();
}

}  // namespace

std::optional<std::uint64_t> DiscardResult::GivenBack() const {
  if (!stored_before || !stored_after) return std::nullopt;
  return *stored_before - std::min(*stored_before, *stored_after);
}

DiscardResult DiscardFree(const ImageSource& source, bool dry_run,
                          const std::function<bool()>& stop, VolumeFacts& facts) {
  // What somebody else has written last must not come back by a power cut: it could still need what
  // is free now.
  if (!dry_run) {
    if (const std::error_code error = source.file->Flush()) {
      Refuse(source, "cannot be made durable: " + error.message());
    }
    if (FileJournalHome(source.journal_path).Exists()) {
      Refuse(source, "still has its journal " + source.journal_path);
    }
  }
  RefuseChanged(source);
  Ranges ranges;
  {
    const std::unique_ptr<ImageVolume> volume = OpenFileSystem(source, MakeStore(source));
    facts = volume->Facts();
    ranges = FreeRanges(*volume, source.offset);
  }
  DiscardResult result;
  result.free_bytes = Sum(ranges);
  std::optional<DiscardLimits> limits = DiscardLimits{.unit = kFileUnit};
  if (source.file->IsBlockDevice()) {
    struct stat status {};
    ::fstat(source.file->Descriptor(), &status);
    limits = ReadDiscardLimits(kSysfs, DeviceOf(status));
  }
  if (!limits) {
    result.cannot = true;
    result.note = "the device gives no space back";
    return result;
  }
  ranges = WholeUnits(ranges, *limits);
  result.stored_before = Stored(source);
  if (dry_run) {
    result.discarded = Sum(ranges);
    if (result.stored_before) {
      const std::uint64_t kept = *result.stored_before;
      result.stored_after = kept - std::min(kept, StoredIn(source.file->Descriptor(), ranges));
    }
    return result;
  }
  RefuseChanged(source);
  Discard(source, ranges, stop, result);
  // Also so that blocks are counted that are only about to be given back.
  if (const std::error_code error = source.file->Flush(); error && !result.failed) {
    result.failed = true;
    result.note = error.message();
  }
  result.stored_after = Stored(source);
  return result;
}

TrimReport TrimImage(const std::string& path, const OpenOptions& options,
                     const std::function<bool()>& stop) {
  TrimReport report;
  OpenOptions opening = options;
  opening.writable = true;
  if (opening.drop_restore_points) {
    opening.discard = true;
    const std::unique_ptr<MountedVolume> volume = OpenImage(path, opening, report.opening);
    ErrorCode code = volume->DropRestorePoints();
    if (const ErrorCode closed = volume->Close(); !code) code = closed;
    report.remarks = volume->Remarks();
    if (code) throw VolumeRefused(path + ": its restore points could not be given up");
  } else {
    ImageSource source = LocateVolume(path, opening, !opening.dry_run);
    if (opening.dry_run) source.scratch = std::make_shared<ScratchDevice>(source.file);
    SettleLeftover(source, path, opening, report.opening);
    report.opening.source = std::make_shared<const ImageSource>(std::move(source));
  }
  for (const std::string& objection : report.opening.objections) throw VolumeRefused(objection);
  report.discard = DiscardFree(*report.opening.source, opening.dry_run, stop, report.facts);
  return report;
}

}  // namespace vornalux
