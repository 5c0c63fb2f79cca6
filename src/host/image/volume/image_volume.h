// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "host/image/device/device_error.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/transaction.h"
#include "host/image/volume/allocation_map.h"
#include "host/image/volume/move_plan.h"
#include "host/image/volume/volume_store.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// The move itself, written once for every file system: checks, copy, metadata, commit. A file
// system adds where its metadata lies. Moves are gathered into commits, by bytes and time. Where
// the clusters lie in the end depends on neither.
class ImageVolume : public MountedVolume {
 public:
  ErrorCode Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn, std::int64_t count,
                 const MoveCheckpoint& checkpoint = {}) final;
  ErrorCode DropRestorePoints() final;
  ErrorCode Commit() final;
  ErrorCode Close() final;
  bool CouldBegin() const final { return begin_error_ == error::kSuccess; }
  ErrorCode Extents(const StreamRef& stream, std::vector<Extent>& out) final;
  ErrorCode ReadDevice(std::uint64_t offset, std::span<std::uint8_t> out) final {
    return FromDevice(transaction_->Read(offset, out));
  }
  std::optional<std::uint64_t> TakeReadFault() final { return transaction_->TakeReadFault(); }
  ErrorCode WriteFault() const final { return FromDevice(transaction_->WriteFault()); }
  SmartDrive* Drive() final { return store_.drive.get(); }
  std::int64_t ClustersMoved() const final { return clusters_moved_; }
  std::int64_t FreeClusters() const final { return clusters_->FreeClusters(); }
  void CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const final;
  bool BitmapChanges(std::uint64_t& mark, std::vector<std::int64_t>& lcns) final {
    return clusters_->Changes().Since(mark, lcns);
  }

  // Bytes from the start of the volume.
  std::uint64_t ClusterOffset(std::int64_t lcn) const;
  std::uint64_t ClusterSize() const { return cluster_size_; }

  // What a pass would refuse this volume for, each as a sentence with its remedy. Collected only of
  // a volume that was opened for looking; any other is refused at the first of them.
  const std::vector<std::string>& Objections() const { return objections_; }

  // Restores the dirty flag that an interrupted run of ours left set, durably, and removes the
  // journal. Called once by whoever opened the volume with recovering set; moves come after it.
  ErrorCode Recover();

 protected:
  explicit ImageVolume(VolumeStore store);

  // The volume's state forbids moving. Throws VolumeRefused, unless it is only looked at.
  void Object(std::string why);
  bool OnlyLooking() const { return store_.only_looking; }

  // The file system calls this once it knows how many clusters there are. Calling it again with the
  // same number, as a Reload() may, changes nothing.
  void SetClusters(std::int64_t total, std::uint64_t cluster_size,
                   std::uint64_t first_cluster_offset);

  Transaction& Device() { return *transaction_; }
  AllocationMap& Clusters() { return *clusters_; }
  const AllocationMap& Clusters() const { return *clusters_; }

  // All runs of a stream in VCN order, holes included. Adjoining runs need not be joined.
  virtual ErrorCode Runs(const StreamRef& stream, std::vector<ClusterRun>& out) = 0;
  // kSuccess when clusters [vcn, vcn + count) of the stream may be moved at all.
  virtual ErrorCode MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t count) = 0;
  // Makes the metadata say plan.after, allocation bits included (target used, sources free, in
  // that order), through Device(). Clusters() must agree afterwards. On an error everything written
  // to Device() is dropped and Reload() called.
  virtual ErrorCode Rewrite(const StreamRef& stream, const MovePlan& plan) = 0;
  // Brings all that is held in memory back to what Device() says.
  virtual ErrorCode Reload() = 0;
  // Writes the volume's dirty flag through Device().
  virtual ErrorCode WriteDirtyFlag(bool dirty) = 0;
  // Where file data never comes to lie, nor metadata that moves: what the proofs of a journal are
  // taken from.
  virtual std::vector<ByteRange> StillRanges() { return {}; }
  // The volume is about to be worked on, and marked so: gets rid, through Device(), of what would
  // no longer be true afterwards.
  virtual ErrorCode PrepareForMoves() { return error::kSuccess; }
  // PrepareForMoves() would give up snapshots.
  virtual bool HasToDropRestorePoints() const { return false; }
  // Lets the file system write what it keeps back until a commit (such as FAT's free count).
  virtual ErrorCode BeforeCommit() { return error::kSuccess; }

 private:
  ErrorCode CheckSources(const MovePlan& plan) const;
  ErrorCode StartWork();
  ErrorCode OpenJournal();
  ErrorCode DropJournal();
  ErrorCode MoveNow(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn, std::int64_t count,
                    const MoveCheckpoint& checkpoint);
  ErrorCode Execute(const StreamRef& stream, const MovePlan& plan,
                    const MoveCheckpoint& checkpoint);
  ErrorCode CopyToTarget(const MovePlan& plan, const MoveCheckpoint& checkpoint);
  ErrorCode CommitNow();
  ErrorCode SettleNow();
  ErrorCode Finish();

  VolumeStore store_;
  std::vector<std::string> objections_;
  std::shared_ptr<BlockDevice> journal_store_;
  std::unique_ptr<RedoJournal> journal_;
  std::unique_ptr<Transaction> transaction_;
  std::unique_ptr<AllocationMap> clusters_;
  std::uint64_t cluster_size_ = 0;
  std::uint64_t first_cluster_offset_ = 0;
  bool working_ = false;  // journal and dirty flag are there
  bool failed_ = false;
  std::int64_t clusters_moved_ = 0;
  ErrorCode begin_error_ = error::kSuccess;  // why no move could be the first one
  bool moving_ = false;                      // inside Move(), whose checkpoint may call back
  bool closed_ = false;
  ErrorCode close_result_ = error::kSuccess;
  std::vector<ClusterRun> move_runs_;  // of the move in hand; kept for their memory
  MovePlan move_plan_;
  CommitPace pace_;
};

}  // namespace vornalux
