// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/known_bitmap.h"

#include <algorithm>
#include <limits>

namespace vornalux {
namespace {

std::int64_t PieceOf(std::int64_t lcn) { return lcn / kBitmapChunkClusters * kBitmapChunkClusters; }

bool Answered(ErrorCode result) { return result == error::kSuccess || result == error::kMoreData; }

}  // namespace

void KnownBitmap::Update(bool all, bool let_events_happen) {
  if (let_events_happen && volume_ != kInvalidHandle) platform_.desktop.DoEvents();
  ++look_;
  if (volume_ != volume_known_ || volume_ == kInvalidHandle) return ReadAll(let_events_happen);
  const bool whole = Whole();
  if (OthersWrite()) {
    if (all || distrusted_) return ReadAll(let_events_happen);
    if (turn_ >= end_) turn_ = 0;
    if (end_ > 0) Reread(turn_);
    turn_ += kBitmapChunkClusters;
  } else if (!ReadChanges()) {
    return ReadAll(let_events_happen);
  }
  if (!whole) ReadOn(let_events_happen);
}

void KnownBitmap::ReadAll(bool let_events_happen) {
  volume_known_ = volume_;
  distrusted_ = false;
  total_ = 0;
  end_ = 0;
  mark_ = 0;
  if (volume_ == kInvalidHandle) return gaps_.Reset(0);
  // First, so that what changes while it is read is read again.
  platform_.volumes.BitmapChanges(volume_, mark_, changes_);
  ReadOn(let_events_happen);
}

void KnownBitmap::ReadOn(bool let_events_happen) {
  std::int64_t read = end_;
  for (ErrorCode result = error::kMoreData; result == error::kMoreData;
       read += kBitmapChunkClusters) {
    if (let_events_happen && read != end_) platform_.desktop.DoEvents();
    result = platform_.volumes.VolumeBitmap(volume_, read, kBitmapChunkBytes, chunk_);
    const bool answered = Answered(result) && volume_ == volume_known_;
    if (read == 0) {
      const bool usable = answered && chunk_.starting_lcn == 0 && chunk_.bitmap_size > 0 &&
                          chunk_.bitmap_size <= std::numeric_limits<std::int32_t>::max();
      total_ = usable ? static_cast<std::int32_t>(chunk_.bitmap_size) : 0;
      if (total_ != gaps_.Clusters()) {
        gaps_.Reset(total_);
        looked_at_.assign(static_cast<std::size_t>(total_ / kBitmapChunkClusters + 1), 0);
      }
    }
    // Whatever the answer claims, no bitmap goes on past the volume's end.
    if (!answered || chunk_.starting_lcn != read || read >= total_) break;
    gaps_.Take(read, chunk_.bits);
    LookedAt(read) = look_;
  }
  end_ = std::min<std::int64_t>(read, total_);
  if (end_ < total_) CutOff(end_);
}

bool KnownBitmap::ReadChanges() {
  if (!platform_.volumes.BitmapChanges(volume_, mark_, changes_)) return false;
  for (const std::int64_t lcn : changes_) {
    if (lcn < end_) Reread(lcn);
  }
  return true;
}

KnownBitmap::Piece KnownBitmap::ReadPiece(std::int64_t lcn) {
  const ErrorCode result = platform_.volumes.VolumeBitmap(volume_, lcn, kBitmapChunkBytes, chunk_);
  const std::int64_t size = chunk_.bitmap_size;
  if (!Answered(result) || volume_ != volume_known_ || chunk_.starting_lcn != lcn || size <= 0) {
    return Piece::NotRead;
  }
  // Counted from here on, or, by a driver that does not read its own rules, from the beginning.
  if (size != total_ - lcn && size != total_) return Piece::OfAnotherSize;
  LookedAt(lcn) = look_;
  return gaps_.Take(lcn, chunk_.bits) ? Piece::Changed : Piece::AsKnown;
}

bool KnownBitmap::Reread(std::int64_t lcn) {
  switch (ReadPiece(lcn)) {
    case Piece::AsKnown:
      return true;
    case Piece::Changed:
      break;
    case Piece::NotRead:
      CutOff(lcn);
      if (lcn == 0) total_ = 0;
      break;
    case Piece::OfAnotherSize:
      ReadAll(false);
      break;
  }
  return false;
}

// What lies in a gap that is open at the end is no longer known either.
void KnownBitmap::CutOff(std::int64_t end) { end_ = PieceOf(gaps_.CutOff(end)); }

bool KnownBitmap::StillSo(std::int64_t lcn, std::int64_t count) {
  if (!OthersWrite()) return true;
  for (std::int64_t piece = PieceOf(lcn); piece < std::min(lcn + count, end_);
       piece += kBitmapChunkClusters) {
    if (LookedAt(piece) != look_ && !Reread(piece)) return false;
  }
  return true;
}

void KnownBitmap::EnterMove(const ExtentRecord& before, std::int64_t vcn, std::int64_t count,
                            std::int64_t target) {
  if (!OthersWrite()) return;
  before.EachRun(vcn, count, [&](std::int64_t lcn, std::int64_t clusters) {
    gaps_.Set(lcn, std::min(clusters, end_ - lcn), false);
    gaps_.Set(target, std::min(clusters, end_ - target), true);
    target += clusters;
  });
}

void KnownBitmap::EnterRefusal(std::int64_t lcn, std::int64_t count) {
  if (!OthersWrite()) {
    ReadChanges();
    return;
  }
  for (std::int64_t piece = PieceOf(lcn); piece < std::min(lcn + count, end_);
       piece += kBitmapChunkClusters) {
    // Where the target is as it was known, the refusal is about the file.
    if (!Reread(piece)) return ReadAll(true);
  }
}

}  // namespace vornalux
