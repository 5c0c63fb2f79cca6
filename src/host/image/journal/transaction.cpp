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
  if (!waiting_.Empty()) waiting_.CopyOver(offset, out);
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
  waiting_.Erase(first, end - first);
  return {};
}

std::error_code Transaction::WriteData(std::uint64_t offset,
                                       std::span<const std::uint8_t> data) try {
  if (const std::error_code error = StartData(offset, data.size())) return error;
  data_written_ = true;
  if (const std::error_code error = base_.Write(offset, data)) return error;
  NoteCopy(kNoSource, offset / kSector, data);
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
    std::error_code error = StartData(to, part.size());
    if (!error && !inside) {
      data_written_ = true;
      error = base_.Write(to, part);
      if (!write_fault_) write_fault_ = error;
    }
    if (error) return error;
    NoteCopies(to, part, sources, done, !inside);
    data = data.subspan(part.size());
    done += part.size();
    to = end;
  }
  return {};
}

// data is the content of the sources from byte skip on. in_base: and now of the base, at to; else
// it waits to get there.
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
      const Origin origin = FindOrigin(from, AtMost(data.size(), end - from));
      const auto part = data.first(origin.bytes);
      if (in_base) {
        NoteCopy(origin.sector, to / kSector, part);
      } else {
        waiting_.Put(to / kSector, part, origin.sector);
        // The source alone tells whether somebody has changed it since.
        if (!origin.waiting) NoteCopy(kNoSource, origin.sector, part);
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
  if (data.empty() || to == kNoSource) return;
  const std::uint64_t sectors = data.size() / kSector;
  if (copies_.size() > copies_before_move_) {
    CopiedRange& last = copies_.back();
    const bool both = last.from == kNoSource ? from == kNoSource : last.from + last.sectors == from;
    if (both && last.to + last.sectors == to) {
      last.sectors += sectors;
      last.checksum = Checksum(data, last.checksum);
      return;
    }
  }
  copies_.push_back({from, to, sectors, Checksum(data)});
}

Transaction::Origin Transaction::FindOrigin(std::uint64_t offset, std::size_t length) const {
  const std::uint64_t sector = offset / kSector;
  std::uint64_t end = sector + length / kSector;
  const auto origin = [&](std::uint64_t place, bool waiting) {
    return Origin{place, InMemory((end - sector) * kSector), waiting};
  };
  for (const Overlay* overlay : {&kept_, &move_}) {
    const auto at = overlay->lower_bound(sector);
    if (at == overlay->end() || at->first >= end) continue;
    // What is gathered is part of the commit itself.
    end = at->first == sector ? sector + 1 : at->first;
    if (at->first == sector) return origin(kNoSource, false);
  }
  const auto part = waiting_.FirstBehind(sector);
  if (part == waiting_.All().end() || part->first >= end) return origin(sector, false);
  if (part->first > sector) {
    end = part->first;
    return origin(sector, false);
  }
  end = std::min(end, part->first + part->second.sectors);
  const std::uint64_t source = part->second.source;
  const bool none = source == kNoSource;
  return origin(none ? source : source + (sector - part->first), true);
}

// Gathered sectors win over what the base copies.
std::error_code Transaction::CopyInBase(const ByteRange& piece, std::uint64_t to) {
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

// Fills the buffer with the pieces one after the other; they are read in the order of the disk, and
// what adjoins there as here at once.
std::error_code Transaction::ReadPieces(std::span<const ByteRange> pieces) {
  struct Request {
    std::uint64_t offset;
    std::size_t at;
    std::size_t length;
  };
  std::vector<Request> requests;
  requests.reserve(pieces.size());
  std::size_t at = 0;
  for (const ByteRange& piece : pieces) {
    requests.push_back({piece.offset, at, InMemory(piece.length)});
    at += requests.back().length;
  }
  std::sort(requests.begin(), requests.end(),
            [](const Request& a, const Request& b) { return a.offset < b.offset; });
  for (std::size_t i = 0; i < requests.size();) {
    Request request = requests[i];
    for (++i; i < requests.size() && requests[i].offset == request.offset + request.length &&
              requests[i].at == request.at + request.length;
         ++i) {
      request.length += requests[i].length;
    }
    const std::error_code error =
        Read(request.offset, std::span(buffer_).subspan(request.at, request.length));
    if (error) return error;
  }
  return {};
}

std::error_code Transaction::GatherData(std::span<const ByteRange> pieces, std::uint64_t to,
                                        std::span<const ByteRange> guarded,
                                        const std::function<bool(std::uint64_t)>& checkpoint) try {
  const auto whole = [](const ByteRange& piece) {
    return piece.offset % kSector == 0 && piece.length % kSector == 0;
  };
  if (!std::all_of(pieces.begin(), pieces.end(), whole)) return Error(std::errc::invalid_argument);
  if (base_copies_) {
    // No guard is needed: what it protects is the durable state, and such a base has none.
    data_written_ = true;
    for (const ByteRange& piece : pieces) {
      if (const std::error_code error = CopyInBase(piece, to)) return error;
      to += piece.length;
    }
    return {};
  }
  buffer_.resize(copy_piece_);
  std::size_t filled = 0;
  std::vector<ByteRange> sources;  // of what the buffer holds
  std::uint64_t copied = 0;
  for (ByteRange piece : pieces) {
    while (piece.length > 0) {
      const bool between = filled == 0 && copied > 0;
      if (between && checkpoint && checkpoint(copied)) return Error(std::errc::operation_canceled);
      const std::size_t length = AtMost(copy_piece_ - filled, piece.length);
      sources.push_back({piece.offset, length});
      piece.offset += length;
      piece.length -= length;
      filled += length;
      if (filled < copy_piece_) continue;
      if (const std::error_code error = ReadPieces(sources)) return error;
      if (const std::error_code error = PutData(to, buffer_, sources, guarded)) return error;
      to += filled;
      copied += filled;
      filled = 0;
      sources.clear();
    }
  }
  if (const std::error_code error = ReadPieces(sources)) return error;
  return PutData(to, std::span(buffer_).first(filled), sources, guarded);
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

void Transaction::BeginMove() {
  assert(!in_move_);
  in_move_ = true;
  copies_before_move_ = copies_.size();
  waiting_.BeginMove();
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
  if (in_move_) {
    copies_.erase(copies_.begin() + static_cast<std::ptrdiff_t>(copies_before_move_),
                  copies_.end());
    waiting_.DropMove();
  }
  in_move_ = false;
  move_.clear();
}

void Transaction::Discard() {
  DropMove();
  Forget();
}

void Transaction::Forget() {
  kept_.clear();
  waiting_.Clear();
  copies_.clear();
  copies_before_move_ = 0;
  data_written_ = false;
}

bool Transaction::HasPending() const {
  return !kept_.empty() || !move_.empty() || !waiting_.Empty();
}

std::uint64_t Transaction::RecordBytes() const {
  using namespace journal_format;
  const std::uint64_t gathered = kept_.size() + move_.size();
  return gathered * (kSector + kChecksumBytes + kRunBytes) + waiting_.BytesToRecord() +
         waiting_.Bytes() / kSector * kChecksumBytes + waiting_.All().size() * kRunBytes +
         copies_.size() * kCopyBytes;
}

std::error_code Transaction::CommitPending() {
  CommitContent content(kept_, waiting_, [this](std::uint64_t offset, std::span<std::uint8_t> out) {
    return ReadBase(offset, out);
  });
  if (const std::error_code error = content.CollectRuns()) return error;
  const std::vector<SectorRun>& runs = content.Runs();
  if (data_written_ || (unsettled_ && !runs.empty())) {
    if (const std::error_code error = base_.Flush()) return error;
  }
  if (runs.empty()) return {};
  std::vector<CopiedRange> copies;
  if (const std::error_code error = content.CollectCopies(copies_, copies)) return error;
  if (const std::error_code error = journal_->Record(runs, copies)) return error;
  unsettled_ = true;
  ++records_;
  for (const SectorRun& run : runs) {
    const std::error_code error = base_.Write(run.first_sector * kSector, run.content);
    if (error) return error;
  }
  return {};
}

std::error_code Transaction::Commit() try {
  assert(!in_move_);
  if (failed_) return Error(std::errc::io_error);
  if (!HasPending() && !data_written_) return {};
  if (journal_ == nullptr) return Error(std::errc::read_only_file_system);
  if (const std::error_code error = CommitPending()) {
    failed_ = true;
    return error;
  }
  Forget();
  return {};
} catch (const std::bad_alloc&) {
  failed_ = true;
  return Error(std::errc::not_enough_memory);
}

std::error_code Transaction::Settle() {
  if (failed_) return Error(std::errc::io_error);
  if (!unsettled_) return {};
  std::error_code error = base_.Flush();
  if (!error) error = journal_->Settle();
  failed_ = static_cast<bool>(error);
  unsettled_ = failed_;
  return error;
}

}  // namespace vornalux
