// SPDX-License-Identifier: GPL-2.0-or-later
// What an interrupted run left in its journal. Everything read here is untrusted: numbers are
// checked against what store and volume can hold, and nothing is held whole in memory.
#include <algorithm>
#include <cstring>
#include <new>

#include "host/image/journal.h"
#include "host/image/journal_format.h"
#include "host/image/little_endian.h"

namespace vornalux {
namespace {

using namespace journal_format;

bool AllZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

JournalFinding Found(JournalState state, std::string detail) {
  return {state, std::move(detail), {}};
}
JournalFinding Trouble(std::error_code error) { return {JournalState::Empty, {}, error}; }

// A record whose header is whole. Where its parts lie follows from the header.
class RecordReader {
 public:
  RecordReader(BlockDevice& store, BlockDevice& volume, const RecordHeader& header)
      : store_(store), volume_(volume), header_(header) {}

  // Does the store hold as much as the header says? Afterwards no offset can overflow.
  bool FitsStore() const {
    const std::uint64_t room = store_.Size() > kBodyOffset ? store_.Size() - kBodyOffset : 0;
    constexpr std::uint64_t kPerSector = kSector + kChecksumBytes;
    return header_.sectors <= room / kPerSector &&
           header_.runs <= (room - header_.sectors * kPerSector) / kRunBytes;
  }

  std::error_code BodyMatches(bool& matches);
  std::error_code RunsAreSound(bool& sound);
  // Sets conflict_sector to the first sector of the volume that is neither as it was before the
  // commit nor as it is after it, or leaves it alone.
  std::error_code FindConflict(std::optional<std::uint64_t>& conflict_sector);
  std::error_code Apply();

 private:
  std::uint64_t ChecksumsAt() const { return kBodyOffset + header_.runs * kRunBytes; }
  std::uint64_t PayloadAt() const { return ChecksumsAt() + header_.sectors * kChecksumBytes; }
  std::uint64_t BodyEnd() const { return PayloadAt() + header_.sectors * kSector; }

  template <typename Visit>
  std::error_code EachRun(Visit visit);
  template <typename Visit>
  std::error_code EachPiece(Visit visit);
  std::error_code ReadPayload(std::uint64_t index, std::uint64_t sectors);

  BlockDevice& store_;
  BlockDevice& volume_;
  RecordHeader header_;
  std::vector<std::uint8_t> payload_;
  std::vector<std::uint8_t> checksums_;
  std::vector<std::uint8_t> current_;
};

std::error_code RecordReader::BodyMatches(bool& matches) {
  std::uint32_t checksum = 0;
  std::vector<std::uint8_t> piece;
  for (std::uint64_t at = kBodyOffset; at < BodyEnd(); at += piece.size()) {
    piece.resize(std::min<std::uint64_t>(kPieceBytes, BodyEnd() - at));
    if (const std::error_code error = store_.Read(at, piece)) return error;
    checksum = Checksum(piece, checksum);
  }
  matches = checksum == header_.body_checksum;
  return {};
}

// Calls visit(run) for the entries of the run table until it returns false.
template <typename Visit>
std::error_code RecordReader::EachRun(Visit visit) {
  constexpr std::uint64_t kEntries = kPieceBytes / kRunBytes;
  std::vector<std::uint8_t> table;
  for (std::uint64_t done = 0; done < header_.runs; done += kEntries) {
    table.resize(std::min(kEntries, header_.runs - done) * kRunBytes);
    const std::error_code error = store_.Read(kBodyOffset + done * kRunBytes, table);
    if (error) return error;
    for (std::size_t at = 0; at < table.size(); at += kRunBytes) {
      const RunEntry run{LoadLittle<std::uint64_t>(table, at),
                         LoadLittle<std::uint64_t>(table, at + 8)};
      if (!visit(run)) return {};
    }
  }
  return {};
}

std::error_code RecordReader::RunsAreSound(bool& sound) {
  const std::uint64_t volume_sectors = volume_.Size() / kSector;
  std::uint64_t next_free = 0;
  std::uint64_t sectors = 0;
  bool good = header_.runs > 0;
  const std::error_code error = EachRun([&](const RunEntry& run) {
    good = run.sectors > 0 && run.first_sector >= next_free && run.first_sector <= volume_sectors &&
           run.sectors <= volume_sectors - run.first_sector;
    next_free = run.first_sector + run.sectors;
    sectors += run.sectors;
    return good;
  });
  sound = good && sectors == header_.sectors;
  return error;
}

// Calls visit(first sector on the volume, index of its content in the record, count) for pieces of
// the runs, until it returns an error or true for "enough".
template <typename Visit>
std::error_code RecordReader::EachPiece(Visit visit) {
  constexpr std::uint64_t kSectors = kPieceBytes / kSector;
  std::uint64_t index = 0;
  std::error_code result;
  const std::error_code error = EachRun([&](const RunEntry& run) {
    for (std::uint64_t done = 0; done < run.sectors; done += kSectors) {
      const std::uint64_t count = std::min(kSectors, run.sectors - done);
      bool enough = false;
      result = visit(run.first_sector + done, index, count, enough);
      if (result || enough) return false;
      index += count;
    }
    return true;
  });
  return error ? error : result;
}

std::error_code RecordReader::ReadPayload(std::uint64_t index, std::uint64_t sectors) {
  payload_.resize(sectors * kSector);
  return store_.Read(PayloadAt() + index * kSector, payload_);
}

std::error_code RecordReader::FindConflict(std::optional<std::uint64_t>& conflict_sector) {
  return EachPiece(
      [&](std::uint64_t first, std::uint64_t index, std::uint64_t count, bool& enough) {
        if (const std::error_code error = ReadPayload(index, count)) return error;
        checksums_.resize(count * kChecksumBytes);
        current_.resize(count * kSector);
        std::error_code error = store_.Read(ChecksumsAt() + index * kChecksumBytes, checksums_);
        if (!error) error = volume_.Read(first * kSector, current_);
        if (error) return error;
        for (std::uint64_t i = 0; i < count && !enough; ++i) {
          const auto now = std::span(current_).subspan(i * kSector, kSector);
          const auto after = std::span(payload_).subspan(i * kSector, kSector);
          const auto old_checksum = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes);
          const auto new_checksum = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes + 4);
          const bool is_old = Checksum(now) == old_checksum;
          const bool is_new = std::memcmp(now.data(), after.data(), kSector) == 0;
          if ((is_old || is_new) && Checksum(after) == new_checksum) continue;
          conflict_sector = first + i;
          enough = true;
        }
        return error;
      });
}

std::error_code RecordReader::Apply() {
  return EachPiece([&](std::uint64_t first, std::uint64_t index, std::uint64_t count, bool&) {
    const std::error_code error = ReadPayload(index, count);
    return error ? error : volume_.Write(first * kSector, payload_);
  });
}

// Reads a header sector; zeros where the store does not reach that far.
std::error_code ReadHeader(BlockDevice& store, std::uint64_t offset, HeaderSector& sector) {
  sector = {};
  if (store.Size() <= offset) return {};
  const std::size_t length = std::min<std::uint64_t>(kSector, store.Size() - offset);
  return store.Read(offset, std::span(sector).first(length));
}

JournalFinding JudgeIdentity(const HeaderSector& first, const HeaderSector& record,
                             const VolumeIdentity& identity) {
  if (AllZero(first) && AllZero(record)) {
    return Found(JournalState::Empty, "the journal was created but never used");
  }
  const std::optional<VolumeIdentity> owner = DecodeIdentity(first);
  if (!owner) return Found(JournalState::Foreign, "it is no journal of this program, or damaged");
  if (*owner != identity) return Found(JournalState::Foreign, "it belongs to another volume");
  return Found(JournalState::Idle, "no commit was in progress");
}

}  // namespace

JournalFinding RedoJournal::Recover(const VolumeIdentity& identity) try {
  HeaderSector first;
  HeaderSector record;
  if (const std::error_code error = ReadHeader(store_, 0, first)) return Trouble(error);
  if (const std::error_code error = ReadHeader(store_, kRecordOffset, record)) {
    return Trouble(error);
  }
  JournalFinding idle = JudgeIdentity(first, record, identity);
  if (idle.state != JournalState::Idle) return idle;

  const std::optional<RecordHeader> header = DecodeRecordHeader(record);
  if (!header) return idle;
  RecordReader reader(store_, volume_, *header);
  if (!reader.FitsStore()) return idle;
  bool good = false;
  if (const std::error_code error = reader.BodyMatches(good)) return Trouble(error);
  // The record never got whole, so nothing of it was applied.
  if (!good) return idle;
  if (const std::error_code error = reader.RunsAreSound(good)) return Trouble(error);
  if (!good) return Found(JournalState::Conflict, "its record does not fit the volume");

  std::optional<std::uint64_t> conflict;
  if (const std::error_code error = reader.FindConflict(conflict)) return Trouble(error);
  if (conflict) {
    return Found(JournalState::Conflict, "sector " + std::to_string(*conflict) +
                                             " of the volume was changed since by another program");
  }
  std::error_code error = reader.Apply();
  if (!error) error = volume_.Flush();
  if (!error) error = Drop();
  if (error) return Trouble(error);
  return Found(JournalState::Replayed, "finished the commit that was in progress (" +
                                           std::to_string(header->sectors) + " sectors)");
} catch (const std::bad_alloc&) {
  return Trouble(std::make_error_code(std::errc::not_enough_memory));
}

}  // namespace vornalux
