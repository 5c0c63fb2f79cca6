// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/volume/image_volume.h"

#include <algorithm>
#include <utility>

#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kSector = 512;

// True for as long as one of these lives.
class Inside {
 public:
  explicit Inside(bool& flag) : flag_(flag) { flag_ = true; }
  ~Inside() { flag_ = false; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool& flag_;
};

// What is written from here on belongs to one move, dropped unless it is kept.
class MoveInHand {
 public:
  explicit MoveInHand(Transaction& transaction) : transaction_(&transaction) {
    transaction_->BeginMove();
  }
  ~MoveInHand() { Drop(); }
  MoveInHand(const MoveInHand&) = delete;
  MoveInHand& operator=(const MoveInHand&) = delete;

  void Keep() { std::exchange(transaction_, nullptr)->KeepMove(); }
  void Drop() {
    if (transaction_ != nullptr) std::exchange(transaction_, nullptr)->DropMove();
  }

 private:
  Transaction* transaction_;
};

}  // namespace

ImageVolume::ImageVolume(VolumeStore store)
    : store_(std::move(store)),
      transaction_(std::make_unique<Transaction>(*store_.device)),
      clusters_(std::make_unique<AllocationMap>(0)),
      pace_(store_.limits) {
  transaction_->CopyInPiecesOf(static_cast<std::size_t>(store_.limits.piece));
}

void ImageVolume::Object(std::string why) {
  if (!store_.only_looking) throw VolumeRefused(why);
  objections_.push_back(std::move(why));
}

void ImageVolume::SetClusters(std::int64_t total, std::uint64_t cluster_size,
                              std::uint64_t first_cluster_offset) {
  cluster_size_ = cluster_size;
  first_cluster_offset_ = first_cluster_offset;
  // The map knows which clusters are held, which no device can tell.
  if (clusters_->Clusters() != total) clusters_ = std::make_unique<AllocationMap>(total);
}

std::uint64_t ImageVolume::ClusterOffset(std::int64_t lcn) const {
  return first_cluster_offset_ + static_cast<std::uint64_t>(lcn) * cluster_size_;
}

void ImageVolume::CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const {
  clusters_->Copy(first_lcn, out);
}

ErrorCode ImageVolume::Extents(const StreamRef& stream, std::vector<Extent>& out) {
  out.clear();
  std::vector<ClusterRun> runs;
  if (const ErrorCode code = Runs(stream, runs)) return code;
  if (!RunsAreSound(runs, clusters_->Clusters())) return error::kFileCorrupt;
  JoinRuns(runs);
  out.reserve(runs.size());
  for (const ClusterRun& run : runs) out.push_back({run.vcn + run.count, run.lcn});
  return error::kSuccess;
}

ErrorCode ImageVolume::Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn,
                            std::int64_t count, const MoveCheckpoint& checkpoint) {
  if (moving_) return error::kNotReady;
  const Inside inside(moving_);
  return MoveNow(stream, vcn, lcn, count, checkpoint);
}

ErrorCode ImageVolume::MoveNow(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn,
                               std::int64_t count, const MoveCheckpoint& checkpoint) {
  if (closed_) return error::kInvalidHandle;
  if (failed_) return error::kWriteFault;
  if (store_.journal_home == nullptr) return error::kWriteProtect;
  if (store_.recovering) return error::kNotReady;

  std::vector<ClusterRun>& runs = move_runs_;
  MovePlan& plan = move_plan_;
  runs.clear();
  if (const ErrorCode code = Runs(stream, runs)) return code;
  if (const ErrorCode code = PlanMove(runs, vcn, lcn, count, clusters_->Clusters(), plan)) {
    return code;
  }
  const std::int64_t left = runs.back().vcn + runs.back().count - vcn;
  if (const ErrorCode code = MayMove(stream, vcn, std::min(count, left))) return code;
  if (plan.target_count == 0) return error::kSuccess;
  if (!clusters_->RangeFree(plan.target_lcn, plan.target_count)) return error::kAccessDenied;
  if (const ErrorCode code = CheckSources(plan)) return code;
  if (const ErrorCode code = StartWork()) return code;
  const bool small =
      static_cast<std::uint64_t>(plan.target_count) <= pace_.Limits().waiting_move / cluster_size_;
  if (!small && clusters_->RangeHeld(plan.target_lcn, plan.target_count)) {
    if (const ErrorCode code = SettleNow()) return code;
  }
  pace_.Begin();
  if (const ErrorCode code = Execute(stream, plan, checkpoint)) return code;
  const bool due = pace_.Due(transaction_->WaitingBytes(), transaction_->RecordBytes());
  return due ? CommitNow() : error::kSuccess;
}

// A volume that says otherwise is damaged: clusters of two owners, or of none.
ErrorCode ImageVolume::CheckSources(const MovePlan& plan) const {
  std::vector<ClusterRun> sources = plan.sources;
  std::sort(sources.begin(), sources.end(),
            [](const ClusterRun& a, const ClusterRun& b) { return a.lcn < b.lcn; });
  std::int64_t end = 0;
  for (const ClusterRun& run : sources) {
    if (run.lcn < end || !clusters_->RangeUsed(run.lcn, run.count)) return error::kFileCorrupt;
    end = run.lcn + run.count;
  }
  return error::kSuccess;
}

ErrorCode ImageVolume::OpenJournal() {
  std::error_code code = store_.journal_home->Open(journal_store_);
  if (code) return FromDevice(code);
  journal_ = std::make_unique<RedoJournal>(*journal_store_, *store_.device);
  if (store_.recovering) {
    code = journal_->Continue();
  } else {
    std::vector<SectorRange> still;
    for (const ByteRange& range : StillRanges()) {
      still.push_back({range.offset / kSector, range.length / kSector});
    }
    code = journal_->Begin(store_.identity, std::move(still));
  }
  if (!code) transaction_->AttachJournal(journal_.get());
  return FromDevice(code);
}

ErrorCode ImageVolume::DropJournal() {
  transaction_->AttachJournal(nullptr);
  journal_.reset();
  journal_store_.reset();
  return FromDevice(store_.journal_home->Remove());
}

ErrorCode ImageVolume::StartWork() {
  if (working_) return error::kSuccess;
  // We could not leave it as we found it: the flag says whether a run of ours was interrupted.
  if (store_.allow_dirty && Dirty()) return error::kWriteProtect;
  ErrorCode code = OpenJournal();
  if (code) {
    if (begin_error_ == error::kSuccess) begin_error_ = code;
    if (journal_store_ != nullptr) DropJournal();
    return code;
  }
  begin_error_ = error::kSuccess;
  working_ = true;
  // Alone and first: what finds a journal later may touch only a volume that bears this mark.
  code = WriteDirtyFlag(true);
  if (!code) code = PrepareForMoves();
  if (!code) code = SettleNow();
  if (code) failed_ = true;
  return code;
}

ErrorCode ImageVolume::Execute(const StreamRef& stream, const MovePlan& plan,
                               const MoveCheckpoint& checkpoint) {
  MoveInHand move(*transaction_);
  // Nothing refers to a copy that was not finished, and nothing in memory has changed.
  if (const ErrorCode copied = CopyToTarget(plan, checkpoint)) return copied;
  ErrorCode code = Rewrite(stream, plan);
  if (!code && !clusters_->RangeUsed(plan.target_lcn, plan.target_count)) {
    code = error::kGenFailure;
  }
  if (!code) {
    move.Keep();
    pace_.Moved(static_cast<std::uint64_t>(plan.target_count) * cluster_size_);
    clusters_moved_ += plan.target_count;
    return error::kSuccess;
  }
  move.Drop();
  // Without a true picture of the volume in memory the moves so far cannot be committed either.
  if (Reload() != error::kSuccess) failed_ = true;
  return code;
}

ErrorCode ImageVolume::CopyToTarget(const MovePlan& plan, const MoveCheckpoint& checkpoint) {
  std::vector<ByteRange> pieces;
  pieces.reserve(plan.sources.size());
  for (const ClusterRun& run : plan.sources) {
    pieces.push_back(
        {ClusterOffset(run.lcn), static_cast<std::uint64_t>(run.count) * cluster_size_});
  }
  std::vector<ByteRange> guarded;
  for (const auto& [lcn, count] : clusters_->HeldParts(plan.target_lcn, plan.target_count)) {
    guarded.push_back({ClusterOffset(lcn), static_cast<std::uint64_t>(count) * cluster_size_});
  }
  const auto between = [&](std::uint64_t copied) {
    return checkpoint.reached(static_cast<std::int64_t>(copied / cluster_size_));
  };
  return FromDevice(transaction_->GatherData(
      pieces, ClusterOffset(plan.target_lcn), guarded,
      checkpoint.reached ? between : std::function<bool(std::uint64_t)>()));
}

ErrorCode ImageVolume::DropRestorePoints() {
  if (moving_ || closed_) return error::kNotReady;
  if (!HasToDropRestorePoints()) return error::kSuccess;
  return store_.journal_home == nullptr ? error::kWriteProtect : StartWork();
}

ErrorCode ImageVolume::Commit() {
  if (moving_) return error::kNotReady;
  if (failed_) return error::kWriteFault;
  return working_ ? SettleNow() : error::kSuccess;
}

ErrorCode ImageVolume::CommitNow() {
  if (!pace_.Moving() && !transaction_->HasPending()) return error::kSuccess;
  const std::uint64_t records = transaction_->Records();
  ErrorCode code = BeforeCommit();
  if (!code) code = FromDevice(transaction_->Commit());
  if (code) {
    failed_ = true;
    return code;
  }
  if (transaction_->Records() > records) clusters_->AgeHeld();
  pace_.Committed();
  return error::kSuccess;
}

// Nothing is left to be finished afterwards, and all that is free may be written to.
ErrorCode ImageVolume::SettleNow() {
  if (const ErrorCode code = CommitNow()) return code;
  if (const ErrorCode code = FromDevice(transaction_->Settle())) {
    failed_ = true;
    return code;
  }
  clusters_->ReleaseHeld();
  return error::kSuccess;
}

ErrorCode ImageVolume::Close() {
  if (moving_) return error::kNotReady;
  if (closed_) return close_result_;
  close_result_ = begin_error_;
  if (!close_result_) close_result_ = failed_ ? error::kWriteFault : CommitNow();
  if (!close_result_ && working_) close_result_ = Finish();
  closed_ = true;
  // A journal that was made and never needed goes away now, not with the volume.
  if (!close_result_) store_.journal_home.reset();
  return close_result_;
}

// The flag goes in a commit of its own: no state with moves in it may look clean before the moves
// are durable.
ErrorCode ImageVolume::Finish() {
  ErrorCode code = WriteDirtyFlag(false);
  if (!code) code = SettleNow();
  if (code) {
    failed_ = true;
    return code;
  }
  working_ = false;
  return DropJournal();
}

ErrorCode ImageVolume::Recover() {
  if (!store_.recovering) return error::kSuccess;
  if (store_.journal_home == nullptr) return error::kWriteProtect;
  if (const ErrorCode code = OpenJournal()) return code;
  if (const ErrorCode code = Finish()) return code;
  store_.recovering = false;
  store_.allow_dirty = false;
  return error::kSuccess;
}

}  // namespace vornalux
