// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal/commit_content.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/image/device/in_memory.h"
#include "host/image/journal/journal_format.h"

namespace vornalux {
namespace {

using journal_format::kSector;

// Sectors are compared with the volume in stretches of at most so many.
constexpr std::size_t kStretch = 2048;

// The first of the runs that ends behind the sector.
std::vector<SectorRun>::const_iterator FirstBehind(const std::vector<SectorRun>& runs,
                                                   std::uint64_t sector) {
  return std::partition_point(runs.begin(), runs.end(),
                              [sector](const SectorRun& run) { return run.End() <= sector; });
}

}  // namespace

CommitContent::CommitContent(const GatheredSectors& gathered, const WaitingData& waiting,
                             Reader read)
    : gathered_(gathered), waiting_(waiting), read_(std::move(read)) {}

std::error_code CommitContent::CollectRuns() {
  if (const std::error_code error = CollectChanges()) return error;
  for (const auto& [sector, content] : changes_) runs_.push_back({sector, content});
  CollectWaiting();
  std::sort(runs_.begin(), runs_.end(),
            [](const SectorRun& a, const SectorRun& b) { return a.first_sector < b.first_sector; });
  return {};
}

// Gathered sectors that differ from what lies beneath them, neighbours joined.
std::error_code CommitContent::CollectChanges() {
  auto last = changes_.end();
  for (auto first = gathered_.begin(); first != gathered_.end();) {
    auto end = first;
    std::size_t count = 0;
    while (end != gathered_.end() && end->first == first->first + count && count < kStretch) {
      ++end;
      ++count;
    }
    buffer_.resize(count * kSector);
    if (const std::error_code error = read_(first->first * kSector, buffer_)) return error;
    waiting_.CopyOver(first->first * kSector, buffer_);
    for (const std::uint8_t* current = buffer_.data(); first != end; ++first, current += kSector) {
      const auto& [sector, content] = *first;
      if (std::memcmp(current, content.data(), kSector) == 0) continue;
      const bool adjoins =
          last != changes_.end() && last->first + last->second.size() / kSector == sector;
      if (!adjoins) last = changes_.try_emplace(changes_.end(), sector);
      last->second.insert(last->second.end(), content.begin(), content.end());
    }
  }
  return {};
}

// What waits, but for what the changes replace. The record holds what has no source, or one that
// this commit writes to.
void CommitContent::CollectWaiting() {
  // Up to where a sector and what follows it is changed, or is not.
  const auto changed = [&](std::uint64_t sector, std::uint64_t& end) {
    auto next = changes_.upper_bound(sector);
    if (next != changes_.end()) end = std::min(end, next->first);
    if (next == changes_.begin()) return false;
    --next;
    const std::uint64_t stop = next->first + next->second.size() / kSector;
    if (stop > sector) end = std::min(end, stop);
    return stop > sector;
  };
  const auto waited_for = [&](std::uint64_t sector, std::uint64_t& end) {
    const auto part = waiting_.FirstBehind(sector);
    if (part == waiting_.All().end()) return false;
    const bool inside = part->first <= sector;
    end = std::min(end, inside ? part->first + part->second.sectors : part->first);
    return inside;
  };
  for (const auto& [place, part] : waiting_.All()) {
    const auto content = waiting_.Content(part);
    for (std::uint64_t done = 0; done < part.sectors;) {
      std::uint64_t end = place + part.sectors;
      const bool replaced = changed(place + done, end);
      std::uint64_t source = kNoSource;
      if (!replaced && part.source != kNoSource) {
        source = part.source + done;
        std::uint64_t source_end = source + (end - place - done);
        const bool gone = changed(source, source_end);
        const bool written = waited_for(source, source_end);
        end = place + done + (source_end - source);
        if (gone || written) source = kNoSource;
      }
      const std::uint64_t sectors = end - place - done;
      if (!replaced) {
        runs_.push_back({place + done,
                         content.subspan(InMemory(done * kSector), InMemory(sectors * kSector)),
                         source});
      }
      done += sectors;
    }
  }
}

// What the runs leave of a range, as the base holds it.
std::error_code CommitContent::CollectRest(std::uint64_t first, std::uint64_t end,
                                           std::vector<CopiedRange>& copies) {
  for (auto run = FirstBehind(runs_, first); first < end; ++run) {
    const std::uint64_t stop = run == runs_.end() ? end : std::min(end, run->first_sector);
    if (stop > first) {
      CopiedRange rest{kNoSource, first, stop - first, 0};
      for (std::uint64_t done = 0; done < rest.sectors; done += kStretch) {
        buffer_.resize(AtMost(kStretch, rest.sectors - done) * kSector);
        const std::error_code error = read_((first + done) * kSector, buffer_);
        if (error) return error;
        rest.checksum = journal_format::Checksum(buffer_, rest.checksum);
      }
      copies.push_back(rest);
    }
    if (run == runs_.end()) break;
    first = run->End();
  }
  return {};
}

std::error_code CommitContent::CollectCopies(const std::vector<CopiedRange>& copied,
                                             std::vector<CopiedRange>& copies) {
  const auto replaced = [&](std::uint64_t first, std::uint64_t sectors) {
    const auto run = FirstBehind(runs_, first);
    return run != runs_.end() && run->first_sector < first + sectors;
  };
  const auto tell = [&](const CopiedRange& copy, std::uint64_t first, bool whole) {
    if (!whole) return CollectRest(first, first + copy.sectors, copies);
    copies.push_back({kNoSource, first, copy.sectors, copy.checksum});
    return std::error_code();
  };
  for (const CopiedRange& copy : copied) {
    const bool has_source = copy.from != kNoSource;
    const bool there = !replaced(copy.to, copy.sectors);
    const bool source_there = !has_source || !replaced(copy.from, copy.sectors);
    if (there && source_there) {
      copies.push_back(copy);
      continue;
    }
    std::error_code error = tell(copy, copy.to, there);
    if (!error && has_source) error = tell(copy, copy.from, source_there);
    if (error) return error;
  }
  return {};
}

}  // namespace vornalux
