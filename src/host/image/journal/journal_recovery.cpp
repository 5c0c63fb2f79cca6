// SPDX-License-Identifier: GPL-2.0-or-later
// What an interrupted run left in its journal. Everything read here is untrusted: numbers are
// checked against what store and volume can hold, and nothing is held whole in memory.
#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"

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
    std::uint64_t room = store_.Size();
    const auto take = [&room](std::uint64_t count, std::uint64_t bytes) {
      if (count > room / bytes) return false;
      room -= count * bytes;
      return true;
    };
    return take(header_.body, 1) && take(1, header_.ProofBytes()) &&
           take(header_.sectors, kChecksumBytes) && take(header_.contents, kSector) &&
           take(header_.runs, header_.RunBytes()) && take(header_.copies, kCopyBytes);
  }

  std::error_code BodyMatches(bool& matches);
  std::error_code RunsAreSound(bool& sound);
  // Sets conflict_sector to the first sector of the volume that is neither as it was before the
  // commit nor as it is after it, or whose content is not where the record says, or leaves it
  // alone. applied: is any as it is after it alone?
  std::error_code FindConflict(std::optional<std::uint64_t>& conflict_sector, bool& applied);
  // Sets conflict_sector to the start of the first copy that is not on the volume, or whose source
  // has got another content since, or leaves it alone.
  std::error_code FindLostCopy(std::optional<std::uint64_t>& conflict_sector);
  // Takes out of a proof what the commit changes.
  std::error_code TakeOut(Proof& proof);
  // The proof that held before the commit, which the first version keeps elsewhere. Nothing when
  // there was none.
  std::error_code ReadProofBefore(std::optional<Proof>& proof);
  // The one that holds after it. Nothing when there is none.
  std::error_code ReadProof(std::optional<HeaderSector>& proof);
  std::error_code Apply();

 private:
  // Sectors of one run that are looked at together.
  struct Piece {
    std::uint64_t first = 0;    // on the volume
    std::uint64_t index = 0;    // among all sectors of the record
    std::uint64_t content = 0;  // index among those whose content the record holds, or the first
    bool elsewhere = false;     // sector of the volume from which it comes
    std::size_t sectors = 0;
  };

  template <typename Visit>
  std::error_code EachRun(Visit visit);
  template <typename Visit>
  std::error_code EachPiece(Visit visit);
  std::error_code ReadPiece(const Piece& piece);
  std::error_code Holds(std::uint64_t first, const CopiedRange& copy, bool& holds);

  BlockDevice& store_;
  BlockDevice& volume_;
  RecordHeader header_;
  std::vector<std::uint8_t> content_;
  std::vector<std::uint8_t> checksums_;
  std::vector<std::uint8_t> current_;
};

std::error_code RecordReader::BodyMatches(bool& matches) {
  std::uint32_t checksum = 0;
  std::vector<std::uint8_t> piece;
  for (std::uint64_t at = header_.body; at < header_.BodyEnd(); at += piece.size()) {
    piece.resize(AtMost(kPieceBytes, header_.BodyEnd() - at));
    if (const std::error_code error = store_.Read(at, piece)) return error;
    checksum = Checksum(piece, checksum);
  }
  matches = checksum == header_.body_checksum;
  return {};
}

// Calls visit(run) for the entries of the run table until it returns false.
template <typename Visit>
std::error_code RecordReader::EachRun(Visit visit) {
  const std::size_t bytes = header_.RunBytes();
  const std::size_t entries = kPieceBytes / bytes;
  std::vector<std::uint8_t> table;
  for (std::uint64_t done = 0; done < header_.runs; done += entries) {
    table.resize(AtMost(entries, header_.runs - done) * bytes);
    const std::error_code error = store_.Read(header_.body + done * bytes, table);
    if (error) return error;
    for (std::size_t at = 0; at < table.size(); at += bytes) {
      RunEntry run{LoadLittle<std::uint64_t>(table, at), LoadLittle<std::uint64_t>(table, at + 8)};
      if (header_.version != kOneRecordVersion) {
        run.source = LoadLittle<std::uint64_t>(table, at + 16);
      }
      if (!visit(run)) return {};
    }
  }
  return {};
}

std::error_code RecordReader::RunsAreSound(bool& sound) {
  const std::uint64_t volume_sectors = volume_.Size() / kSector;
  std::uint64_t next_free = 0;
  std::uint64_t sectors = 0;
  std::uint64_t contents = 0;
  bool good = header_.runs > 0;
  const auto inside = [volume_sectors](std::uint64_t first, std::uint64_t count) {
    return first <= volume_sectors && count <= volume_sectors - first;
  };
  const std::error_code error = EachRun([&](const RunEntry& run) {
    const bool here = run.source == kNoSource;
    good = run.sectors > 0 && run.first_sector >= next_free &&
           inside(run.first_sector, run.sectors) && (here || inside(run.source, run.sectors));
    next_free = run.first_sector + run.sectors;
    sectors += run.sectors;
    if (here) contents += run.sectors;
    return good;
  });
  sound = good && sectors == header_.sectors && contents == header_.contents;
  return error;
}

// Calls visit(piece, enough) for pieces of the runs, until it returns an error or sets enough.
template <typename Visit>
std::error_code RecordReader::EachPiece(Visit visit) {
  constexpr std::size_t kSectors = kPieceBytes / kSector;
  std::uint64_t index = 0;
  std::uint64_t content = 0;
  std::error_code result;
  const std::error_code error = EachRun([&](const RunEntry& run) {
    const bool elsewhere = run.source != kNoSource;
    for (std::uint64_t done = 0; done < run.sectors; done += kSectors) {
      const std::size_t count = AtMost(kSectors, run.sectors - done);
      bool enough = false;
      result = visit(Piece{run.first_sector + done, index, elsewhere ? run.source + done : content,
                           elsewhere, count},
                     enough);
      if (result || enough) return false;
      index += count;
      if (!elsewhere) content += count;
    }
    return true;
  });
  return error ? error : result;
}

// What the record says of a piece, and what the volume holds there now. Content that is to come
// from a sector where it no longer lies, or that cannot be read, is taken to be in its place.
std::error_code RecordReader::ReadPiece(const Piece& piece) {
  const std::size_t bytes = piece.sectors * kSector;
  content_.resize(bytes);
  current_.resize(bytes);
  checksums_.resize(piece.sectors * kChecksumBytes);
  std::error_code error =
      store_.Read(header_.ChecksumsAt() + piece.index * kChecksumBytes, checksums_);
  if (!error) error = volume_.Read(piece.first * kSector, current_);
  if (error) return error;
  if (!piece.elsewhere) {
    return store_.Read(header_.ContentsAt() + piece.content * kSector, content_);
  }
  const bool readable = !volume_.Read(piece.content * kSector, content_);
  for (std::size_t i = 0; i < piece.sectors; ++i) {
    const auto there = std::span(content_).subspan(i * kSector, kSector);
    const auto wanted = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes + 4);
    if (readable && Checksum(there) == wanted) continue;
    std::memcpy(there.data(), current_.data() + i * kSector, kSector);
  }
  return {};
}

std::error_code RecordReader::FindConflict(std::optional<std::uint64_t>& conflict_sector,
                                           bool& applied) {
  applied = false;
  return EachPiece([&](const Piece& piece, bool& enough) {
    if (const std::error_code error = ReadPiece(piece)) return error;
    for (std::size_t i = 0; i < piece.sectors && !enough; ++i) {
      const auto now = std::span(current_).subspan(i * kSector, kSector);
      const auto after = std::span(content_).subspan(i * kSector, kSector);
      const auto old_checksum = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes);
      const auto new_checksum = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes + 4);
      const bool is_old = Checksum(now) == old_checksum;
      const bool is_new = std::memcmp(now.data(), after.data(), kSector) == 0;
      applied = applied || !is_old;
      if ((is_old || is_new) && Checksum(after) == new_checksum) continue;
      conflict_sector = piece.first + i;
      enough = true;
    }
    return std::error_code();
  });
}

std::error_code RecordReader::Holds(std::uint64_t first, const CopiedRange& copy, bool& holds) {
  constexpr std::size_t kSectors = kPieceBytes / kSector;
  std::uint32_t checksum = 0;
  for (std::uint64_t done = 0; done < copy.sectors; done += kSectors) {
    current_.resize(AtMost(kSectors, copy.sectors - done) * kSector);
    if (const std::error_code error = volume_.Read((first + done) * kSector, current_)) {
      return error;
    }
    checksum = Checksum(current_, checksum);
  }
  holds = checksum == copy.checksum;
  return {};
}

std::error_code RecordReader::FindLostCopy(std::optional<std::uint64_t>& conflict_sector) {
  const std::uint64_t volume_sectors = volume_.Size() / kSector;
  const auto inside = [volume_sectors](std::uint64_t first, std::uint64_t count) {
    return first <= volume_sectors && count <= volume_sectors - first;
  };
  std::uint64_t total = 0;
  for (std::uint64_t i = 0; i < header_.copies; ++i) {
    std::array<std::uint8_t, kCopyBytes> entry;
    if (const auto error = store_.Read(header_.CopiesAt() + i * kCopyBytes, entry)) return error;
    const CopiedRange copy{LoadLittle<std::uint64_t>(entry, 0), LoadLittle<std::uint64_t>(entry, 8),
                           LoadLittle<std::uint64_t>(entry, 16),
                           LoadLittle<std::uint32_t>(entry, 24)};
    const bool has_source = copy.from != kNoSource;
    // No honest commit tells of any sector more than once as a source and once as a target: the
    // work is bounded.
    bool good = inside(copy.to, copy.sectors) && copy.sectors <= 2 * volume_sectors - total &&
                (!has_source || inside(copy.from, copy.sectors));
    if (good) {
      total += copy.sectors;
      if (const std::error_code error = Holds(copy.to, copy, good)) return error;
    }
    // A source that cannot be read any more has not changed: the copy is all there is of it.
    bool same = true;
    if (good && has_source && !Holds(copy.from, copy, same)) good = same;
    if (good) continue;
    conflict_sector = copy.to;
    return {};
  }
  return {};
}

std::error_code RecordReader::TakeOut(Proof& proof) {
  return EachRun([&proof](const RunEntry& run) {
    auto at = proof.sectors.lower_bound(run.first_sector);
    while (at != proof.sectors.end() && at->first - run.first_sector < run.sectors) {
      at = proof.sectors.erase(at);
    }
    return true;
  });
}

std::error_code RecordReader::ReadProofBefore(std::optional<Proof>& proof) {
  HeaderSector sector;
  if (const std::error_code error = store_.Read(header_.ProofsAt(), sector)) return error;
  proof = DecodeProof(sector);
  return {};
}

std::error_code RecordReader::ReadProof(std::optional<HeaderSector>& proof) {
  HeaderSector sector;
  const std::error_code error = store_.Read(header_.BodyEnd() - kSector, sector);
  const std::optional<Proof> decoded = error ? std::nullopt : DecodeProof(sector);
  if (decoded && decoded->sequence == header_.sequence) proof = sector;
  return error;
}

// Also what seems to be there already: it may be so in the system's memory alone, after a disk that
// failed to take it.
std::error_code RecordReader::Apply() {
  return EachPiece([&](const Piece& piece, bool&) {
    const std::error_code error = ReadPiece(piece);
    return error ? error : volume_.Write(piece.first * kSector, content_);
  });
}

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
  std::array<HeaderSector, kRecordSlots> records;
};

std::error_code ReadHeaders(BlockDevice& store, Headers& headers) {
  std::error_code error = ReadHeader(store, 0, headers.identity);
  if (!error) error = ReadHeader(store, kProofOffset, headers.proof);
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

// What a store holds besides its identity.
struct Leftover {
  JournalFinding finding;              // Idle as long as there is nothing else to say
  std::optional<Proof> proof;          // of the last commit that was done, before the record
  std::optional<RecordHeader> record;  // the last that is whole, unless it is done
  bool same_place = false;
};

std::error_code ReadLeftover(BlockDevice& store, BlockDevice& volume,
                             const VolumeIdentity& identity, Leftover& left) {
  Headers headers;
  std::uint32_t version = 0;
  if (const std::error_code error = ReadHeaders(store, headers)) return error;
  left.finding = JudgeIdentity(headers, identity, version, left.same_place);
  if (left.finding.state != JournalState::Idle) return {};

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
  live_end_ = 0;
  if (version == kVersion) return {};
  // What lies where records begin now is not one, whatever it looks like.
  const std::vector<std::uint8_t> zeros(kBodiesOffset - kRecordOffset);
  std::error_code error = store_.Write(kRecordOffset, zeros);
  if (!error) error = store_.Flush();
  if (!error) error = store_.Write(0, EncodeIdentity(*owner));
  return error ? error : store_.Flush();
}

}  // namespace vornalux
