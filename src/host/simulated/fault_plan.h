// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace vornalux {

class SimulatedVolume;

inline constexpr int kForEver = INT_MAX;

// Which calls a fault hits: of those about path (any when empty; files as "C:\dir\file", volumes as
// "C:", roots as "C:\", folders as "C:\dir"), the nth from 1 on, and how many in a row.
struct When {
  std::string path = {};
  int nth = 1;
  int times = 1;
};

enum class CallPoint { OpenVolume, FreeSpace, Bitmap, Move, Open, Pointers, FindFirst };

// What a bitmap chunk may claim wrongly.
enum class BitmapLie { NegativeSize, HugeSize, ShortBits, NoBits, WrongStart };

// What goes wrong, and when. Each fault counts the calls that it is about for itself, from the
// moment it is planned.
class FaultPlan {
 public:
  void FailOpenVolume(When when = {});
  void FailFreeSpace(When when, ErrorCode error);
  // A volume that says it has no clusters.
  void ReportNoClusters(When when = {});
  void FailBitmap(When when, ErrorCode error);
  void LieInBitmap(When when, BitmapLie lie);
  // Runs action when the bitmap has been read, before the caller sees it.
  void AfterBitmap(When when, std::function<void()> action);
  // Somebody else writes to the volume right after the bitmap was read.
  void TakeAfterBitmap(When when, SimulatedVolume& volume, std::int64_t lcn, std::int64_t count);
  void RefuseMove(When when, ErrorCode error);
  // Runs action in place of nothing: the move is then made.
  void BeforeMove(When when, std::function<void()> action);
  // A file that is locked for a while, or (times kForEver) vanishes between two calls.
  void FailOpen(When when, ErrorCode error = error::kFileNotFound);
  void FailPointers(When when, ErrorCode error);
  // No extents, and still more data.
  void EmptyChunk(When when = {});
  // More data, but the next VCN is not above the one asked for.
  void StuckChunk(When when = {});
  void FailFindFirst(When when = {});

  // What the platform does about a call.
  enum class Effect { Fail, NoClusters, Lie, Action, EmptyChunk, StuckChunk };
  struct Fault {
    CallPoint point = CallPoint::Open;
    When when = {};
    Effect effect = Effect::Fail;
    ErrorCode error = error::kSuccess;
    BitmapLie lie = BitmapLie::NegativeSize;
    std::function<void()> action = {};
    int seen = 0;
  };
  // Counts a call and returns the faults that hit it, in the order of planning.
  std::vector<Fault> Hits(CallPoint point, std::string_view path);

 private:
  std::vector<Fault> faults_;
};

}  // namespace vornalux
