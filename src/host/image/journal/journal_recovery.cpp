// SPDX-License-Identifier: GPL-2.0-or-later
// What an interrupted run left in its journal. Everything read here is untrusted: numbers are
// checked against what store and volume can hold, and nothing is held whole in memory.
#include <algorithm>
#include <array>
#include <new>

#include "host/image/device/in_memory.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"
#include "host/image/journal/record_reader.h"

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

// Reads a header sector; zeros where the store does not reach that far.
std::error_code ReadHeader(BlockDevice& store, std::uint64_t offset, HeaderSector& sector) {
  sector = {};
  if (store.Size() <= offset) return {};
  const std::size_t length = AtMost(kSector, store.Size() - offset);
  return store.Read(offset, std::span(sector).first(length));
}

struct Headers {
  HeaderSector identity;
  HeaderSector proof;
  HeaderSector still;
  std::array<HeaderSector, kRecordSlots> records;
};

std::error_code ReadHeaders(BlockDevice& store, Headers& headers) {
  std::error_code error = ReadHeader(store, 0, headers.identity);
  if (!error) error = ReadHeader(store, kProofOffset, headers.proof);
  if (!error) error = ReadHeader(store, kStillOffset, headers.still);
  for (std::size_t slot = 0; slot < kRecordSlots && !error; ++slot) {
    error = ReadHeader(store, SlotOffset(slot), headers.records[slot]);
  }
  return error;
}

JournalFinding JudgeIdentity(const Headers& headers, const VolumeIdentity& identity,
                             std::uint32_t& version, bool& same_place) {
  if (AllZero(headers.identity) &&
      std::all_of(headers.records.begin(), headers.records.end(), AllZero)) {
    return Found(JournalState::Empty, "the journal was created but never used");
  }
  const std::optional<VolumeIdentity> owner = DecodeIdentity(headers.identity, version);
  if (version > kVersion) {
    return Found(JournalState::Newer, "its format is number " + std::to_string(version) +
                                          ", this version knows those up to " +
                                          std::to_string(kVersion));
  }
  if (!owner) {
    return Found(JournalState::Foreign,
                 "it is no journal of this version of the program, or damaged");
  }
  if (*owner != identity) return Found(JournalState::Foreign, "it belongs to another volume");
  same_place = !identity.place.empty() && owner->place == identity.place;
  return Found(JournalState::Idle, "no commit was in progress");
}

// The first sector of the volume that is not as the proof says.
std::error_code FindDifference(BlockDevice& volume, const Proof& proof,
                               std::optional<std::uint64_t>& sector) {
  HeaderSector now;
  for (const auto& [number, checksum] : proof.sectors) {
    const bool inside = number < volume.Size() / kSector;
    if (inside) {
      if (const std::error_code error = volume.Read(number * kSector, now)) return error;
    }
    if (inside && Checksum(now) == checksum) continue;
    sector = number;
    break;
  }
  return {};
}

JournalFinding NotAsLeft(std::uint64_t sector) {
  return Found(JournalState::Conflict, "the volume is not as the interrupted run left it (sector " +
                                           std::to_string(sector) + " differs)");
}

JournalFinding TablesDiffer() {
  return Found(JournalState::Conflict,
               "the volume's tables are not as the interrupted run left them");
}

// What a store holds besides its identity.
struct Leftover {
  JournalFinding finding;              // Idle as long as there is nothing else to say
  std::optional<Proof> proof;          // of the last commit that was done, before the record
  std::optional<RecordHeader> record;  // the last that is whole, unless it is done
  HeaderSector still{};                // which sectors the proof's sum is of
  bool same_place = false;
};

std::error_code ReadLeftover(BlockDevice& store, BlockDevice& volume,
                             const VolumeIdentity& identity, Leftover& left) {
  Headers headers;
  std::uint32_t version = 0;
  if (const std::error_code error = ReadHeaders(store, headers)) return error;
  left.finding = JudgeIdentity(headers, identity, version, left.same_place);
  if (left.finding.state != JournalState::Idle) return {};

  left.still = headers.still;
  left.proof = DecodeProof(headers.proof);
  if (!left.proof && !AllZero(headers.proof)) {
    left.finding = Found(JournalState::Foreign, "it is damaged");
    return {};
  }
  std::uint64_t done = left.proof ? left.proof->sequence : 0;
  const std::size_t slots = version == kOneRecordVersion ? 1 : kRecordSlots;
  for (const HeaderSector& sector : std::span(headers.records).first(slots)) {
    const std::optional<RecordHeader> header = DecodeRecordHeader(sector, version);
    if (!header || header->sequence <= done) continue;
    RecordReader reader(store, volume, *header);
    if (!reader.FitsStore()) continue;
    // A record that never got whole: nothing of it was applied.
    bool whole = false;
    if (const std::error_code error = reader.BodyMatches(whole)) return error;
    if (!whole) continue;
    left.record = header;
    done = header->sequence;
  }
  if (!left.record || version == kOneRecordVersion) return {};
  return RecordReader(store, volume, *left.record).ReadProofBefore(left.proof);
}

// unapplied: what it means when nothing of the record is on the volume.
std::error_code JudgeRecord(RecordReader& reader, JournalState unapplied, JournalFinding& finding) {
  bool sound = false;
  std::optional<HeaderSector> proof;
  if (const std::error_code error = reader.RunsAreSound(sound)) return error;
  if (const std::error_code error = reader.ReadProof(proof)) return error;
  if (!sound || !proof) {
    finding = Found(JournalState::Conflict, "its record does not fit the volume");
    return {};
  }
  std::optional<std::uint64_t> conflict;
  bool applied = false;
  if (const std::error_code error = reader.FindConflict(conflict, applied)) return error;
  if (!conflict && !applied && unapplied != JournalState::Pending) {
    finding = Found(unapplied, "nothing of it has been written to this volume");
    return {};
  }
  if (!conflict) {
    if (const std::error_code error = reader.FindLostCopy(conflict)) return error;
  }
  finding =
      conflict ? NotAsLeft(*conflict) : Found(JournalState::Pending, "a commit was in progress");
  return {};
}

std::error_code JudgeStore(BlockDevice& store, BlockDevice& volume, const VolumeIdentity& identity,
                           Leftover& left) {
  if (const std::error_code error = ReadLeftover(store, volume, identity, left)) return error;
  if (left.finding.state != JournalState::Idle) return {};
  if (!left.proof && !left.record) {
    left.finding = Found(JournalState::Empty, "nothing had been written to the volume");
    return {};
  }
  std::optional<RecordReader> reader;
  if (left.record) {
    reader.emplace(store, volume, *left.record);
    // Without a mark all that tells the volume from a copy of it is its place.
    const JournalState unapplied = left.proof        ? JournalState::Pending
                                   : left.same_place ? JournalState::Empty
                                                     : JournalState::Unclear;
    const std::error_code error = JudgeRecord(*reader, unapplied, left.finding);
    if (error || left.finding.state != JournalState::Pending) return error;
  }
  if (!left.proof) return {};
  Proof proof = *left.proof;
  if (reader) {
    if (const std::error_code error = reader->TakeOut(proof)) return error;
  }
  std::optional<std::uint64_t> difference;
  if (const std::error_code error = FindDifference(volume, proof, difference)) return error;
  if (difference) left.finding = NotAsLeft(*difference);
  if (difference || !proof.still_sum) return {};
  // A few sectors show a commit that has changed these. Whichever it was, it has changed tables.
  const auto still = DecodeStill(left.still, volume.Size() / kSector);
  std::uint64_t sum = 0;
  if (still) {
    // What cannot be read nobody has written to; the file system will say what it lacks.
    if (SumStillSectors(volume, *still, sum)) return {};
    if (reader) {
      if (const std::error_code error = reader->PutBack(*still, sum)) return error;
    }
  }
  if (!still || sum != *proof.still_sum) left.finding = TablesDiffer();
  return {};
}

}  // namespace

JournalFinding RedoJournal::Judge(const VolumeIdentity& identity) try {
  Leftover left;
  if (const std::error_code error = JudgeStore(store_, volume_, identity, left)) {
    return Trouble(error);
  }
  return left.finding;
} catch (const std::bad_alloc&) {
  return Trouble(std::make_error_code(std::errc::not_enough_memory));
}

JournalFinding RedoJournal::Recover(const VolumeIdentity& identity) try {
  Leftover left;
  std::error_code error = JudgeStore(store_, volume_, identity, left);
  if (error) return Trouble(error);
  if (left.finding.state != JournalState::Pending) return left.finding;

  RecordReader reader(store_, volume_, *left.record);
  std::optional<HeaderSector> proof;
  error = reader.ReadProof(proof);
  if (!error) error = reader.Apply();
  if (!error) error = volume_.Flush();
  if (!error) error = store_.Write(kProofOffset, *proof);
  if (!error) error = store_.Flush();
  if (error) return Trouble(error);
  return Found(JournalState::Replayed, "finished the commit that was in progress (" +
                                           std::to_string(left.record->sectors) + " sectors)");
} catch (const std::bad_alloc&) {
  return Trouble(std::make_error_code(std::errc::not_enough_memory));
}

std::error_code RedoJournal::Continue() {
  Headers headers;
  if (const std::error_code error = ReadHeaders(store_, headers)) return error;
  std::uint32_t version = 0;
  const std::optional<VolumeIdentity> owner = DecodeIdentity(headers.identity, version);
  const std::optional<Proof> proof = DecodeProof(headers.proof);
  if (!owner || !proof) return std::make_error_code(std::errc::invalid_argument);
  sequence_ = proof->sequence;
  proof_ = proof->sectors;
  still_sum_ = proof->still_sum;
  if (still_sum_) {
    auto still = DecodeStill(headers.still, volume_.Size() / kSector);
    if (!still) return std::make_error_code(std::errc::invalid_argument);
    still_ = std::move(*still);
  }
  live_end_ = 0;
  if (version != kOneRecordVersion) return {};
  // What lies where records begin now is not one, whatever it looks like.
  const std::vector<std::uint8_t> zeros(kBodiesOffset - kRecordOffset);
  std::error_code error = store_.Write(kRecordOffset, zeros);
  if (!error) error = store_.Flush();
  if (!error) error = store_.Write(0, EncodeIdentity(*owner));
  return error ? error : store_.Flush();
}

}  // namespace vornalux
