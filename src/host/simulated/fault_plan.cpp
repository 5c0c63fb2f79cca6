// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/fault_plan.h"

#include <utility>

#include "host/simulated/call_log.h"
#include "host/simulated/simulated_volume.h"
#include "text/ascii_case.h"

namespace vornalux {

void FaultPlan::FailOpenVolume(When when) {
  faults_.push_back({.point = CallPoint::OpenVolume, .when = std::move(when)});
}

void FaultPlan::FailFreeSpace(When when, ErrorCode error) {
  faults_.push_back({.point = CallPoint::FreeSpace, .when = std::move(when), .error = error});
}

void FaultPlan::ReportNoClusters(When when) {
  faults_.push_back(
      {.point = CallPoint::FreeSpace, .when = std::move(when), .effect = Effect::NoClusters});
}

void FaultPlan::FailBitmap(When when, ErrorCode error) {
  faults_.push_back({.point = CallPoint::Bitmap, .when = std::move(when), .error = error});
}

void FaultPlan::LieInBitmap(When when, BitmapLie lie) {
  faults_.push_back(
      {.point = CallPoint::Bitmap, .when = std::move(when), .effect = Effect::Lie, .lie = lie});
}

void FaultPlan::AfterBitmap(When when, std::function<void()> action) {
  faults_.push_back({.point = CallPoint::Bitmap,
                     .when = std::move(when),
                     .effect = Effect::Action,
                     .action = std::move(action)});
}

void FaultPlan::TakeAfterBitmap(When when, SimulatedVolume& volume, std::int64_t lcn,
                                std::int64_t count) {
  AfterBitmap(std::move(when), [&volume, lcn, count] { volume.TakeClusters(lcn, count); });
}

void FaultPlan::RefuseMove(When when, ErrorCode error) {
  faults_.push_back({.point = CallPoint::Move, .when = std::move(when), .error = error});
}

void FaultPlan::BeforeMove(When when, std::function<void()> action) {
  faults_.push_back({.point = CallPoint::Move,
                     .when = std::move(when),
                     .effect = Effect::Action,
                     .action = std::move(action)});
}

void FaultPlan::FailOpen(When when, ErrorCode error) {
  faults_.push_back({.point = CallPoint::Open, .when = std::move(when), .error = error});
}

void FaultPlan::FailPointers(When when, ErrorCode error) {
  faults_.push_back({.point = CallPoint::Pointers, .when = std::move(when), .error = error});
}

void FaultPlan::EmptyChunk(When when) {
  faults_.push_back(
      {.point = CallPoint::Pointers, .when = std::move(when), .effect = Effect::EmptyChunk});
}

void FaultPlan::StuckChunk(When when) {
  faults_.push_back(
      {.point = CallPoint::Pointers, .when = std::move(when), .effect = Effect::StuckChunk});
}

void FaultPlan::FailFindFirst(When when) {
  faults_.push_back({.point = CallPoint::FindFirst, .when = std::move(when)});
}

std::vector<FaultPlan::Fault> FaultPlan::Hits(CallPoint point, std::string_view path) {
  std::vector<Fault> hits;
  for (Fault& fault : faults_) {
    if (fault.point != point) continue;
    if (!fault.when.path.empty() && !EqualIgnoringAsciiCase(fault.when.path, BarePath(path))) {
      continue;
    }
    if (fault.seen < kForEver) ++fault.seen;
    const int since = fault.seen - fault.when.nth;
    if (since >= 0 && since < fault.when.times) hits.push_back(fault);
  }
  return hits;
}

}  // namespace vornalux
