// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/journal/commit_content.h"
#include "host/image/journal/sector_run.h"
#include "host/image/journal/waiting_data.h"

namespace vornalux {

class RedoJournal;

struct ByteRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

// A device whose writes become durable all together or not at all. Write() gathers whole 512-byte
// sectors in memory; Commit() brings them to the base device through the journal. File data that
// goes to clusters which nothing durable refers to bypasses the gathering (WriteData); other file
// data waits in memory, and the journal tells where it comes from.
//
// Moves nest one level: what was written since BeginMove() can be dropped without touching earlier
// moves. After a failed Commit() the device refuses all further work: the journal is then the truth
// and the next opening of the volume finishes or refuses it.
class Transaction final : public BlockDevice {
 public:
  // Neither is owned. Without a journal the device is read-only: Write() and WriteData() fail with
  // EROFS.
  explicit Transaction(BlockDevice& base, RedoJournal* journal = nullptr);
  ~Transaction() override;

  // Null makes the device read-only again; what is gathered then stays readable.
  void AttachJournal(RedoJournal* journal) { journal_ = journal; }

  std::uint64_t Size() const override;
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  // Nothing: gathered writes become durable with Commit() only.
  std::error_code Flush() override;

  // Writes through to the base at once, dropping gathered sectors underneath. offset and length are
  // multiples of 512. The target must be unused in the last committed state.
  std::error_code WriteData(std::uint64_t offset, std::span<const std::uint8_t> data);

  // Copies the pieces, one after the other, to one place, as Read() then WriteData() of large
  // pieces, or by the base's own Copy() where it has one. What lands in a guarded range (ascending,
  // apart), which the durable state still refers to, waits for the commit instead; its sources must
  // not be written to before the commit after that. All numbers are
  // multiples of 512; no piece overlaps the target. Between large pieces checkpoint, if there is
  // one, is given the bytes copied so far and may read; when it answers true the copy ends with
  // operation_canceled. A base that copies by itself is done at once.
  std::error_code GatherData(std::span<const ByteRange> pieces, std::uint64_t to,
                             std::span<const ByteRange> guarded = {},
                             const std::function<bool(std::uint64_t copied)>& checkpoint = {});

  // How much of a copy lies between two checkpoints: a multiple of 512, 2 MiB where nothing is
  // said.
  void CopyInPiecesOf(std::size_t bytes) { copy_piece_ = bytes; }

  void BeginMove();
  void KeepMove();
  void DropMove();

  // Forgets everything gathered since the last commit.
  void Discard();

  // Flush data and what the last commit applied, write and flush the journal, apply. From here on
  // the commit cannot get lost; places that it frees are guarded until the next one, or Settle().
  std::error_code Commit();

  // Makes durable what the last commit applied, and the journal say so.
  std::error_code Settle();

  // How many commits had anything to record. One that had not frees and unguards nothing.
  std::uint64_t Records() const { return records_; }

  // The offset of the last reading of the base that failed since this was asked.
  std::optional<std::uint64_t> TakeReadFault() { return std::exchange(read_fault_, std::nullopt); }

  // Why the base did not take a copy, the first time that it did not.
  std::error_code WriteFault() const { return write_fault_; }

  bool HasPending() const;
  bool Failed() const { return failed_; }
  // About how long the record of the next commit will be, and how much data waits for it in memory.
  std::uint64_t RecordBytes() const;
  std::uint64_t WaitingBytes() const { return waiting_.Bytes(); }

 private:
  static constexpr std::size_t kSector = 512;
  using Sector = GatheredSectors::mapped_type;
  using Overlay = GatheredSectors;

  std::error_code ReadBase(std::uint64_t offset, std::span<std::uint8_t> out);
  std::error_code CheckWritable(std::uint64_t offset, std::uint64_t length) const;
  // Where a range's content comes from, as far as that is one place.
  struct Origin {
    std::uint64_t sector = 0;  // of the base; all ones: memory alone
    std::size_t bytes = 0;
    bool waiting = false;
  };

  std::error_code StartData(std::uint64_t offset, std::uint64_t length);
  std::error_code CopyInBase(const ByteRange& piece, std::uint64_t to);
  std::error_code ReadPieces(std::span<const ByteRange> pieces);
  std::error_code PutData(std::uint64_t to, std::span<const std::uint8_t> data,
                          std::span<const ByteRange> sources, std::span<const ByteRange> guarded);
  void NoteCopies(std::uint64_t to, std::span<const std::uint8_t> data,
                  std::span<const ByteRange> sources, std::uint64_t skip, bool in_base);
  void NoteCopy(std::uint64_t from, std::uint64_t to, std::span<const std::uint8_t> data);
  Origin FindOrigin(std::uint64_t offset, std::size_t length) const;
  std::error_code Gather(std::uint64_t offset, std::span<const std::uint8_t> data);
  void Forget();
  std::error_code CommitPending();

  BlockDevice& base_;
  RedoJournal* journal_;
  bool base_copies_;
  Overlay kept_;
  Overlay move_;
  WaitingData waiting_;
  bool in_move_ = false;
  // Data that went to the base since the last commit, in the order of its moves.
  std::vector<CopiedRange> copies_;
  std::size_t copies_before_move_ = 0;
  bool data_written_ = false;
  std::uint64_t records_ = 0;
  bool unsettled_ = false;  // the last commit's writes may not be durable in their places
  bool failed_ = false;
  std::optional<std::uint64_t> read_fault_;
  std::error_code write_fault_;
  std::size_t copy_piece_ = std::size_t{2} << 20;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace vornalux
