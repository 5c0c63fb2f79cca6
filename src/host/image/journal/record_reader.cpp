// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal/record_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"

namespace vornalux::journal_format {

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

std::error_code RecordReader::PutBack(const std::vector<SectorRange>& still, std::uint64_t& sum) {
  return EachPiece([&](const Piece& piece, bool&) {
    if (const std::error_code error = ReadPiece(piece)) return error;
    for (std::size_t i = 0; i < piece.sectors; ++i) {
      const std::uint64_t sector = piece.first + i;
      const bool stays = std::any_of(still.begin(), still.end(),
                                     [&](const SectorRange& range) { return range.Has(sector); });
      if (!stays) continue;
      const auto old_checksum = LoadLittle<std::uint32_t>(checksums_, i * kChecksumBytes);
      const auto now = std::span(current_).subspan(i * kSector, kSector);
      sum += StillTerm(sector, old_checksum) - StillTerm(sector, Checksum(now));
    }
    return std::error_code();
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

}  // namespace vornalux::journal_format
