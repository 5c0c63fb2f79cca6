// SPDX-License-Identifier: GPL-2.0-or-later
// The writing side of the journal; journal_recovery.cpp reads what an interrupted run left.
#include "host/image/journal/journal.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "host/image/device/little_endian.h"
#include "host/image/journal/journal_format.h"

namespace vornalux {
namespace {

using namespace journal_format;

// Appends to the store in large writes and sums up what went by.
class BodyWriter {
 public:
  BodyWriter(BlockDevice& store, std::uint64_t offset) : store_(store), offset_(offset) {
    buffer_.reserve(kPieceBytes);
  }

  std::error_code Append(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      const std::size_t length = std::min(bytes.size(), kPieceBytes - buffer_.size());
      buffer_.insert(buffer_.end(), bytes.begin(),
                     bytes.begin() + static_cast<std::ptrdiff_t>(length));
      bytes = bytes.subspan(length);
      if (buffer_.size() < kPieceBytes) continue;
      if (const std::error_code error = Finish()) return error;
    }
    return {};
  }

  std::error_code Finish() {
    checksum_ = Checksum(buffer_, checksum_);
    const std::error_code error = store_.Write(offset_, buffer_);
    offset_ += buffer_.size();
    buffer_.clear();
    return error;
  }

  std::uint32_t BodyChecksum() const { return checksum_; }

 private:
  BlockDevice& store_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t offset_;
  std::uint32_t checksum_ = 0;
};

std::error_code WriteRunTable(BodyWriter& body, const std::vector<SectorRun>& runs) {
  for (const SectorRun& run : runs) {
    std::array<std::uint8_t, kRunBytes> entry;
    StoreLittle<std::uint64_t>(entry, 0, run.first_sector);
    StoreLittle<std::uint64_t>(entry, 8, run.Sectors());
    StoreLittle<std::uint64_t>(entry, 16, run.source);
    if (const std::error_code error = body.Append(entry)) return error;
  }
  return {};
}

// One piece of a run: the checksums of what the volume holds now and of what it shall hold.
std::error_code WriteChecksums(BodyWriter& body, std::span<const std::uint8_t> before,
                               std::span<const std::uint8_t> after) {
  for (std::size_t at = 0; at < after.size(); at += kSector) {
    std::array<std::uint8_t, kChecksumBytes> entry;
    StoreLittle<std::uint32_t>(entry, 0, Checksum(before.subspan(at, kSector)));
    StoreLittle<std::uint32_t>(entry, 4, Checksum(after.subspan(at, kSector)));
    if (const std::error_code error = body.Append(entry)) return error;
  }
  return {};
}

std::error_code WriteChecksumTable(BodyWriter& body, BlockDevice& volume,
                                   const std::vector<SectorRun>& runs) {
  std::vector<std::uint8_t> before;
  for (const SectorRun& run : runs) {
    for (std::size_t at = 0; at < run.content.size(); at += kPieceBytes) {
      const std::size_t length = std::min(kPieceBytes, run.content.size() - at);
      before.resize(length);
      std::error_code error = volume.Read(run.first_sector * kSector + at, before);
      if (error) return error;
      error = WriteChecksums(body, before, run.content.subspan(at, length));
      if (error) return error;
    }
  }
  return {};
}

std::error_code WriteCopyTable(BodyWriter& body, const std::vector<CopiedRange>& copies) {
  for (const CopiedRange& copy : copies) {
    std::array<std::uint8_t, kCopyBytes> entry{};
    StoreLittle<std::uint64_t>(entry, 0, copy.from);
    StoreLittle<std::uint64_t>(entry, 8, copy.to);
    StoreLittle<std::uint64_t>(entry, 16, copy.sectors);
    StoreLittle<std::uint32_t>(entry, 24, copy.checksum);
    if (const std::error_code error = body.Append(entry)) return error;
  }
  return {};
}

std::error_code WriteBody(BodyWriter& body, BlockDevice& volume, const std::vector<SectorRun>& runs,
                          const std::vector<CopiedRange>& copies, const HeaderSector& proof_before,
                          const HeaderSector& proof_after) {
  if (const std::error_code error = WriteRunTable(body, runs)) return error;
  if (const std::error_code error = WriteChecksumTable(body, volume, runs)) return error;
  for (const SectorRun& run : runs) {
    if (run.source != kNoSource) continue;
    if (const std::error_code error = body.Append(run.content)) return error;
  }
  if (const std::error_code error = WriteCopyTable(body, copies)) return error;
  if (const std::error_code error = body.Append(proof_before)) return error;
  if (const std::error_code error = body.Append(proof_after)) return error;
  return body.Finish();
}

// The first commit sets the dirty mark; a file system needs only a few sectors for that.
constexpr std::size_t kMostMarks = kMostProofs / 2;
constexpr std::size_t kSamples = kMostProofs - kMostMarks;

// In ascending order, apart, and no more than there is room for.
std::vector<SectorRange> Tidied(std::vector<SectorRange> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const SectorRange& a, const SectorRange& b) { return a.first < b.first; });
  std::vector<SectorRange> tidied;
  for (const SectorRange& range : ranges) {
    if (tidied.empty() || tidied.back().first + tidied.back().count < range.first) {
      tidied.push_back(range);
      continue;
    }
    SectorRange& last = tidied.back();
    last.count = std::max(last.first + last.count, range.first + range.count) - last.first;
  }
  if (tidied.size() > kMostStill) tidied.resize(kMostStill);
  return tidied;
}

}  // namespace

RedoJournal::RedoJournal(BlockDevice& store, BlockDevice& volume)
    : store_(store), volume_(volume) {}

std::error_code RedoJournal::Begin(const VolumeIdentity& identity, std::vector<SectorRange> still) {
  still_ = Tidied(std::move(still));
  // A record must never come to stand under an identity that it was not written for.
  if (store_.Size() > kProofOffset) {
    const std::vector<std::uint8_t> zeros(kBodiesOffset - kProofOffset);
    if (const std::error_code error = store_.Write(kProofOffset, zeros)) return error;
    if (const std::error_code error = store_.Flush()) return error;
  }
  if (const auto error = store_.Write(kStillOffset, EncodeStill(still_))) return error;
  if (const std::error_code error = store_.Write(0, EncodeIdentity(identity))) return error;
  return store_.Flush();
}

bool RedoJournal::StaysPut(std::uint64_t sector) const {
  return std::any_of(still_.begin(), still_.end(),
                     [sector](const SectorRange& range) { return range.Has(sector); });
}

// What the volume will bear when the runs are on it.
void RedoJournal::UpdateProof(const std::vector<SectorRun>& runs) {
  std::map<std::uint64_t, std::uint32_t> fresh;
  for (const SectorRun& run : runs) {
    if (run.source != kNoSource) continue;  // file data
    for (std::size_t at = 0; at < run.content.size(); at += kSector) {
      const std::uint64_t sector = run.first_sector + at / kSector;
      const bool known = marks_.contains(sector) || proof_.contains(sector);
      if (!known && (fresh.size() >= kMostProofs || !StaysPut(sector))) continue;
      const std::uint32_t checksum = Checksum(run.content.subspan(at, kSector));
      if (const auto mark = marks_.find(sector); mark != marks_.end()) {
        mark->second = checksum;
      } else if (sequence_ == 1 && marks_.size() < kMostMarks) {
        marks_.emplace(sector, checksum);
        proof_.erase(sector);
      } else {
        fresh.emplace(sector, checksum);
      }
    }
  }
  // What is older stays as far as there is room.
  fresh.merge(proof_);
  proof_ = std::move(fresh);
  while (proof_.size() + marks_.size() > kMostProofs) proof_.erase(std::prev(proof_.end()));
}

// The mark alone would also be on a volume that a later commit has begun to change.
void RedoJournal::SampleStillSectors() {
  std::uint64_t sectors = 0;
  for (const SectorRange& range : still_) sectors += range.count;
  HeaderSector now;
  for (std::size_t i = 0; i < kSamples; ++i) {
    std::uint64_t at = sectors / kSamples * i + sectors % kSamples * i / kSamples;
    for (const SectorRange& range : still_) {
      if (at >= range.count) {
        at -= range.count;
        continue;
      }
      const std::uint64_t sector = range.first + at;
      if (marks_.contains(sector) || volume_.Read(sector * kSector, now)) break;
      proof_.try_emplace(sector, Checksum(now));
      break;
    }
  }
}

std::error_code RedoJournal::UpdateStillSum(const std::vector<SectorRun>& runs) {
  if (!still_sum_) return {};
  HeaderSector before;
  for (const SectorRun& run : runs) {
    for (std::size_t at = 0; at < run.content.size(); at += kSector) {
      const std::uint64_t sector = run.first_sector + at / kSector;
      if (!StaysPut(sector)) continue;
      if (const std::error_code error = volume_.Read(sector * kSector, before)) return error;
      *still_sum_ += StillTerm(sector, Checksum(run.content.subspan(at, kSector))) -
                     StillTerm(sector, Checksum(before));
    }
  }
  return {};
}

std::array<std::uint8_t, kSector> RedoJournal::ProofSector() const {
  Proof proof{sequence_, proof_, still_sum_};
  proof.sectors.insert(marks_.begin(), marks_.end());
  return EncodeProof(proof);
}

// In front of the last body or behind it, so that a record is whole at any time. Where neither has
// room the last one is done with first, since nobody needs it any more.
std::error_code RedoJournal::FindRoom(RecordHeader& header) {
  const std::uint64_t length = header.BodyEnd() - header.body;
  header.body = kBodiesOffset;
  if (live_end_ == 0 || kBodiesOffset + length <= live_begin_) return {};
  header.body = (live_end_ + kBlock - 1) / kBlock * kBlock;
  if (header.body + length <= kBodiesOffset + kRoom) return {};
  header.body = kBodiesOffset;
  return Settle();
}

std::error_code RedoJournal::Record(const std::vector<SectorRun>& runs,
                                    const std::vector<CopiedRange>& copies) try {
  RecordHeader header;
  header.sequence = sequence_ + 1;
  header.runs = runs.size();
  header.copies = copies.size();
  for (const SectorRun& run : runs) {
    header.sectors += run.Sectors();
    if (run.source == kNoSource) header.contents += run.Sectors();
  }
  if (const std::error_code error = FindRoom(header)) return error;

  const HeaderSector before = sequence_ == 0 ? HeaderSector{} : ProofSector();
  if (sequence_ == 0) {
    SampleStillSectors();
    std::uint64_t sum = 0;
    if (!SumStillSectors(volume_, still_, sum)) still_sum_ = sum;
  }
  if (const std::error_code error = UpdateStillSum(runs)) return error;
  ++sequence_;
  UpdateProof(runs);
  BodyWriter body(store_, header.body);
  if (const auto error = WriteBody(body, volume_, runs, copies, before, ProofSector())) {
    return error;
  }
  header.body_checksum = body.BodyChecksum();
  // Header and body may reach the store in any order: it counts only when both checksums agree.
  const HeaderSector sector = EncodeRecordHeader(header);
  if (const std::error_code error = store_.Write(SlotOffset(sequence_), sector)) return error;
  live_begin_ = header.body;
  live_end_ = header.BodyEnd();
  return store_.Flush();
} catch (const std::bad_alloc&) {
  return std::make_error_code(std::errc::not_enough_memory);
}

std::error_code RedoJournal::Settle() {
  if (const std::error_code error = store_.Write(kProofOffset, ProofSector())) return error;
  live_end_ = 0;
  return store_.Flush();
}

}  // namespace vornalux
