// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/journal/journal_format.h"

namespace vornalux::journal_format {

// A record of a journal whose header is whole. Where its parts lie follows from the header. What
// they hold is untrusted, and never held whole in memory.
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
  // Makes the sum of still sectors, as the volume holds them, that of before the commit.
  std::error_code PutBack(const std::vector<SectorRange>& still, std::uint64_t& sum);
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

}  // namespace vornalux::journal_format
