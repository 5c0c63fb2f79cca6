// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal/transaction.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#include "host/image/device/in_memory.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"

namespace vornalux {
namespace {

// Large enough to keep a disk streaming, small enough to stay in the processor's cache and to let
// the user have a word in time on the slowest of disks.
constexpr std::size_t kCopyPiece = std::size_t{2} << 20;

// Gathered sectors are compared with the base in stretches of at most so many.
constexpr std::size_t kStretch = 2048;

std::error_code Error(std::errc code) { return std::make_error_code(code); }

template <typename Overlay>
void CopyOver(const Overlay& overlay, std::uint64_t offset, std::span<std::uint8_t> out) {
  constexpr std::size_t kSector = std::tuple_size_v<typename Overlay::mapped_type>;
  const std::uint64_t end = offset + out.size();
  for (auto at = overlay.lower_bound(offset / kSector);
       at != overlay.end() && at->first * kSector < end; ++at) {
    const std::uint64_t start = at->first * kSector;
    const std::uint64_t from = std::max(start, offset);
    std::memcpy(out.data() + (from - offset), at->second.data() + (from - start),
                AtMost(kSector, std::min(start + kSector, end) - from));
  }
}

void Append(std::vector<SectorRun>& runs, std::uint64_t sector,
            std::span<const std::uint8_t> content) {
  const bool adjoins =
      !runs.empty() &&
      runs.back().first_sector + runs.back().content.size() / content.size() == sector;
  if (!adjoins) runs.push_back({sector, {}});
  runs.back().content.insert(runs.back().content.end(), content.begin(), content.end());
}

std::uint64_t EndOf(const SectorRun& run) {
  return run.first_sector + run.content.size() / journal_format::kSector;
}

// The first of the runs that ends behind the sector.
std::vector<SectorRun>::const_iterator FirstBehind(const std::vector<SectorRun>& runs,
                                                   std::uint64_t sector) {
  return std::partition_point(runs.begin(), runs.end(),
                              [sector](const SectorRun& run) { return EndOf(run) <= sector; });
}

}  // namespace

Transaction::Transaction(BlockDevice& base, RedoJournal* journal)
    : base_(base), journal_(journal), base_copies_(!base.Copy(0, 0, 0)) {}

Transaction::~Transaction() = default;

std::uint64_t Transaction::Size() const { return base_.Size(); }

std::error_code Transaction::ReadBase(std::uint64_t offset, std::span<std::uint8_t> out) {
  const std::error_code error = base_.Read(offset, out);
  // What lies outside is the asker's fault, not the disk's.
  if (error && error != std::errc::invalid_argument) read_fault_ = offset;
  return error;
}

std::error_code Transaction::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (const std::error_code error = ReadBase(offset, out)) return error;
  if (out.empty()) return {};
  if (!kept_.empty()) CopyOver(kept_, offset, out);
  if (!move_.empty()) CopyOver(move_, offset, out);
  return {};
}

std::error_code Transaction::CheckWritable(std::uint64_t offset, std::uint64_t length) const {
  if (failed_) return Error(std::errc::io_error);
  if (journal_ == nullptr) return Error(std::errc::read_only_file_system);
  const bool inside = offset <= Size() && length <= Size() - offset;
  return inside ? std::error_code() : Error(std::errc::invalid_argument);
}

std::error_code Transaction::Write(std::uint64_t offset, std::span<const std::uint8_t> data) try {
  if (const std::error_code error = CheckWritable(offset, data.size())) return error;
  return Gather(offset, data);
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

std::error_code Transaction::Gather(std::uint64_t offset, std::span<const std::uint8_t> data) {
  Overlay& overlay = in_move_ ? move_ : kept_;
  while (!data.empty()) {
    const std::uint64_t sector = offset / kSector;
    const std::size_t at = offset % kSector;
    const std::size_t length = std::min(data.size(), kSector - at);
    Sector content;
    if (length < kSector) {
      if (const std::error_code error = Read(sector * kSector, content)) return error;
    }
    std::memcpy(content.data() + at, data.data(), length);
    overlay.insert_or_assign(sector, content);
    offset += length;
    data = data.subspan(length);
  }
  return {};
}

std::error_code Transaction::Flush() { return {}; }

// Before data comes to lie in a range: what was gathered there is void.
std::error_code Transaction::StartData(std::uint64_t offset, std::uint64_t length) {
  if (const std::error_code error = CheckWritable(offset, length)) return error;
  if (offset % kSector != 0 || length % kSector != 0) return Error(std::errc::invalid_argument);
  const std::uint64_t first = offset / kSector;
  const std::uint64_t end = first + length / kSector;
  for (Overlay* overlay : {&kept_, &move_}) {
    overlay->erase(overlay->lower_bound(first), overlay->lower_bound(end));
  }
  data_written_ = true;
  return {};
}

std::error_code Transaction::WriteData(std::uint64_t offset,
                                       std::span<const std::uint8_t> data) try {
  if (const std::error_code error = StartData(offset, data.size())) return error;
  if (const std::error_code error = base_.Write(offset, data)) return error;
  NoteCopy(CopiedRange::kNoSource, offset / kSector, data);
  return {};
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

// data is the content of the sources.
std::error_code Transaction::PutData(std::uint64_t to, std::span<const std::uint8_t> data,
                                     std::span<const ByteRange> sources,
                                     std::span<const ByteRange> guarded) {
  std::uint64_t done = 0;
  while (!data.empty()) {
    while (!guarded.empty() && guarded.front().offset + guarded.front().length <= to) {
      guarded = guarded.subspan(1);
    }
    const bool inside = !guarded.empty() && guarded.front().offset <= to;
    std::uint64_t end = to + data.size();
    if (!guarded.empty()) {
      const ByteRange& next = guarded.front();
      end = std::min(end, inside ? next.offset + next.length : next.offset);
    }
    const auto part = data.first(AtMost(data.size(), end - to));
    std::error_code error;
    if (inside) {
      error = Write(to, part);
    } else {
      error = StartData(to, part.size());
      if (!error) error = base_.Write(to, part);
    }
    if (error) return error;
    NoteCopies(to, part, sources, done, !inside);
    data = data.subspan(part.size());
    done += part.size();
    to = end;
  }
  return {};
}

// data is the content of the sources from byte skip on; in_base: and now of the base, at to.
void Transaction::NoteCopies(std::uint64_t to, std::span<const std::uint8_t> data,
                             std::span<const ByteRange> sources, std::uint64_t skip, bool in_base) {
  for (const ByteRange& source : sources) {
    if (skip >= source.length) {
      skip -= source.length;
      continue;
    }
    std::uint64_t from = source.offset + skip;
    const std::uint64_t end = source.offset + source.length;
    skip = 0;
    while (from < end && !data.empty()) {
      const std::size_t most = AtMost(data.size(), end - from);
      const auto part = data.first(SameKind(from, most));
      // What was read from memory is not what the base holds there, and part of the commit itself.
      const bool gathered = Gathered(from, part.size());
      if (in_base) {
        NoteCopy(gathered ? CopiedRange::kNoSource : from / kSector, to / kSector, part);
      } else if (!gathered) {
        NoteCopy(CopiedRange::kNoSource, from / kSector, part);
      }
      from += part.size();
      to += part.size();
      data = data.subspan(part.size());
    }
  }
}

void Transaction::NoteCopy(std::uint64_t from, std::uint64_t to,
                           std::span<const std::uint8_t> data) {
  using journal_format::Checksum;
  if (data.empty()) return;
  const std::uint64_t sectors = data.size() / kSector;
  if (copies_.size() > copies_before_move_) {
    CopiedRange& last = copies_.back();
    const bool both = last.from == CopiedRange::kNoSource ? from == CopiedRange::kNoSource
                                                          : last.from + last.sectors == from;
    if (both && last.to + last.sectors == to) {
      last.sectors += sectors;
      last.checksum = Checksum(data, last.checksum);
      return;
    }
  }
  copies_.push_back({from, to, sectors, Checksum(data)});
}

bool Transaction::Gathered(std::uint64_t offset, std::uint64_t length) const {
  for (const Overlay* overlay : {&kept_, &move_}) {
    const auto at = overlay->lower_bound(offset / kSector);
    if (at != overlay->end() && at->first * kSector < offset + length) return true;
  }
  return false;
}

// How far the range is gathered, or is not, from its start on.
std::size_t Transaction::SameKind(std::uint64_t offset, std::size_t length) const {
  if (!Gathered(offset, length)) return length;
  const bool gathered = Gathered(offset, kSector);
  std::size_t same = kSector;
  while (same < length && Gathered(offset + same, kSector) == gathered) same += kSector;
  return std::min(same, length);
}

// Gathered sectors win over what the base copies.
std::error_code Transaction::CopyInBase(const ByteRange& piece, std::uint64_t to) {
  if (piece.offset % kSector != 0) return Error(std::errc::invalid_argument);
  if (const std::error_code error = StartData(to, piece.length)) return error;
  if (const std::error_code error = base_.Copy(piece.offset, to, piece.length)) return error;
  for (const Overlay* overlay : {&kept_, &move_}) {
    for (auto at = overlay->lower_bound(piece.offset / kSector);
         at != overlay->end() && at->first * kSector < piece.offset + piece.length; ++at) {
      const std::uint64_t place = to + (at->first * kSector - piece.offset);
      if (const std::error_code error = base_.Write(place, at->second)) return error;
    }
  }
  return {};
}

std::error_code Transaction::GatherData(std::span<const ByteRange> pieces, std::uint64_t to,
                                        std::span<const ByteRange> guarded,
                                        const std::function<bool(std::uint64_t)>& checkpoint) try {
  if (base_copies_) {
    // No guard is needed: what it protects is the durable state, and such a base has none.
    for (const ByteRange& piece : pieces) {
      if (const std::error_code error = CopyInBase(piece, to)) return error;
      to += piece.length;
    }
    return {};
  }
  buffer_.resize(kCopyPiece);
  std::size_t filled = 0;
  std::vector<ByteRange> sources;  // of what the buffer holds
  std::uint64_t copied = 0;
  for (ByteRange piece : pieces) {
    while (piece.length > 0) {
      const bool between = filled == 0 && copied > 0;
      if (between && checkpoint && checkpoint(copied)) return Error(std::errc::operation_canceled);
      const std::size_t length = AtMost(kCopyPiece - filled, piece.length);
      std::error_code error = Read(piece.offset, std::span(buffer_).subspan(filled, length));
      if (error) return error;
      sources.push_back({piece.offset, length});
      piece.offset += length;
      piece.length -= length;
      filled += length;
      if (filled < kCopyPiece) continue;
      if (error = PutData(to, buffer_, sources, guarded); error) return error;
      to += filled;
      copied += filled;
      filled = 0;
      sources.clear();
    }
  }
  return PutData(to, std::span(buffer_).first(filled), sources, guarded);
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

void Transaction::BeginMove() {
  assert(!in_move_);
  in_move_ = true;
  copies_before_move_ = copies_.size();
}

void Transaction::KeepMove() {
  assert(in_move_);
  in_move_ = false;
  copies_before_move_ = copies_.size();
  while (!move_.empty()) {
    auto inserted = kept_.insert(move_.extract(move_.begin()));
    if (!inserted.inserted) inserted.position->second = inserted.node.mapped();
  }
}

void Transaction::DropMove() {
  // Nothing refers to what it copied: the place is as free as before.
  if (in_move_)
    copies_.erase(copies_.begin() + static_cast<std::ptrdiff_t>(copies_before_move_),
                  copies_.end());
  in_move_ = false;
  move_.clear();
}

void Transaction::Discard() {
  DropMove();
  kept_.clear();
  copies_.clear();
  copies_before_move_ = 0;
  data_written_ = false;
}

bool Transaction::HasPending() const { return !kept_.empty() || !move_.empty(); }

std::uint64_t Transaction::PendingSectors() const { return kept_.size() + move_.size(); }

// Gathered sectors that differ from the base, neighbours joined.
std::error_code Transaction::CollectChanges(std::vector<SectorRun>& runs) {
  for (auto first = kept_.begin(); first != kept_.end();) {
    auto end = first;
    std::size_t count = 0;
    while (end != kept_.end() && end->first == first->first + count && count < kStretch) {
      ++end;
      ++count;
    }
    buffer_.resize(count * kSector);
    if (const std::error_code error = ReadBase(first->first * kSector, buffer_)) return error;
    for (const std::uint8_t* current = buffer_.data(); first != end; ++first, current += kSector) {
      if (std::memcmp(current, first->second.data(), kSector) != 0) {
        Append(runs, first->first, first->second);
      }
    }
  }
  return {};
}

// What the runs leave of a range, as the base holds it.
std::error_code Transaction::CollectRest(const std::vector<SectorRun>& runs, std::uint64_t first,
                                         std::uint64_t end, std::vector<CopiedRange>& copies) {
  for (auto run = FirstBehind(runs, first); first < end; ++run) {
    const std::uint64_t stop = run == runs.end() ? end : std::min(end, run->first_sector);
    if (stop > first) {
      CopiedRange rest{CopiedRange::kNoSource, first, stop - first, 0};
      for (std::uint64_t done = 0; done < rest.sectors; done += kStretch) {
        buffer_.resize(AtMost(kStretch, rest.sectors - done) * kSector);
        const std::error_code error = ReadBase((first + done) * kSector, buffer_);
        if (error) return error;
        rest.checksum = journal_format::Checksum(buffer_, rest.checksum);
      }
      copies.push_back(rest);
    }
    if (run == runs.end()) break;
    first = EndOf(*run);
  }
  return {};
}

// The copies without what the runs replace in the same commit: metadata may have come to lie where
// a file was for a while, and small files where a large one came from. The rest of both places is
// told all the same: what somebody changed there since would be lost with the commit.
std::error_code Transaction::CollectCopies(const std::vector<SectorRun>& runs,
                                           std::vector<CopiedRange>& copies) {
  const auto replaced = [&](std::uint64_t first, std::uint64_t sectors) {
    const auto run = FirstBehind(runs, first);
    return run != runs.end() && run->first_sector < first + sectors;
  };
  for (const CopiedRange& copy : copies_) {
    const bool has_source = copy.from != CopiedRange::kNoSource;
    const bool source_replaced = has_source && replaced(copy.from, copy.sectors);
    if (!source_replaced && !replaced(copy.to, copy.sectors)) {
      copies.push_back(copy);
      continue;
    }
    std::error_code error = CollectRest(runs, copy.to, copy.to + copy.sectors, copies);
    if (!error && has_source) {
      error = CollectRest(runs, copy.from, copy.from + copy.sectors, copies);
    }
    if (error) return error;
  }
  return {};
}

std::error_code Transaction::CommitPending() {
  std::vector<SectorRun> runs;
  if (const std::error_code error = CollectChanges(runs)) return error;
  if (data_written_) {
    if (const std::error_code error = base_.Flush()) return error;
  }
  if (runs.empty()) return {};
  std::vector<CopiedRange> copies;
  if (const std::error_code error = CollectCopies(runs, copies)) return error;
  if (const std::error_code error = journal_->Record(runs, copies)) return error;
  for (const SectorRun& run : runs) {
    const std::error_code error = base_.Write(run.first_sector * kSector, run.content);
    if (error) return error;
  }
  if (const std::error_code error = base_.Flush()) return error;
  return journal_->Settle();
}

std::error_code Transaction::Commit() try {
  assert(!in_move_);
  if (failed_) return Error(std::errc::io_error);
  if (kept_.empty() && !data_written_) return {};
  if (journal_ == nullptr) return Error(std::errc::read_only_file_system);
  if (const std::error_code error = CommitPending()) {
    failed_ = true;
    return error;
  }
  kept_.clear();
  copies_.clear();
  copies_before_move_ = 0;
  data_written_ = false;
  return {};
} catch (const std::bad_alloc&) {
  failed_ = true;
  return Error(std::errc::not_enough_memory);
}

}  // namespace vornalux
