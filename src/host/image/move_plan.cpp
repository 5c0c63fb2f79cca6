// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cerrno>
#include <limits>

#include "host/image/image_volume.h"
#include "host/image/short_write.h"

namespace vornalux {
namespace {

constexpr std::int64_t kHole = -1;

// Makes last longer by run when run goes on where last ends.
bool Join(ClusterRun& last, const ClusterRun& run) {
  if (last.vcn + last.count != run.vcn || (last.lcn == kHole) != (run.lcn == kHole)) return false;
  if (run.lcn != kHole && last.lcn + last.count != run.lcn) return false;
  last.count += run.count;
  return true;
}

void Append(std::vector<ClusterRun>& runs, const ClusterRun& run) {
  if (runs.empty() || !Join(runs.back(), run)) runs.push_back(run);
}

// The part of run that lies in [first, end), which may be empty.
ClusterRun Clip(const ClusterRun& run, std::int64_t first, std::int64_t end) {
  const std::int64_t from = std::max(run.vcn, first);
  const std::int64_t to = std::min(run.vcn + run.count, end);
  const std::int64_t lcn = run.lcn == kHole ? kHole : run.lcn + (from - run.vcn);
  return {from, lcn, std::max<std::int64_t>(to - from, 0)};
}

void Split(std::int64_t first, std::int64_t end, MovePlan& plan) {
  const auto from =
      std::partition_point(plan.before.begin(), plan.before.end(),
                           [first](const ClusterRun& run) { return run.vcn + run.count <= first; });
  const auto to = std::partition_point(from, plan.before.end(),
                                       [end](const ClusterRun& run) { return run.vcn < end; });
  plan.after.assign(plan.before.begin(), from);
  for (auto run = from; run != to; ++run) {
    const ClusterRun head = Clip(*run, run->vcn, first);
    const ClusterRun moved = Clip(*run, first, end);
    const ClusterRun tail = Clip(*run, end, run->vcn + run->count);
    if (head.count > 0) Append(plan.after, head);
    if (moved.lcn == kHole) {
      Append(plan.after, moved);
    } else {
      plan.sources.push_back(moved);
      Append(plan.after, {moved.vcn, plan.target_lcn + plan.target_count, moved.count});
      plan.target_count += moved.count;
    }
    if (tail.count > 0) Append(plan.after, tail);
  }
  if (to == plan.before.end()) return;
  Append(plan.after, *to);
  plan.after.insert(plan.after.end(), to + 1, plan.before.end());
}

}  // namespace

bool RunsAreSound(const std::vector<ClusterRun>& runs, std::int64_t total_clusters) {
  std::int64_t next_vcn = 0;
  std::int64_t clusters_left = total_clusters;
  for (const ClusterRun& run : runs) {
    if (run.vcn != next_vcn || run.count < 1 || run.lcn < kHole) return false;
    if (run.count > std::numeric_limits<std::int64_t>::max() - next_vcn) return false;
    next_vcn += run.count;
    if (run.lcn == kHole) continue;
    if (run.count > clusters_left || run.lcn > total_clusters - run.count) return false;
    clusters_left -= run.count;
  }
  return true;
}

void JoinRuns(std::vector<ClusterRun>& runs) {
  std::size_t joined = 0;
  for (const ClusterRun& run : runs) {
    if (joined == 0 || !Join(runs[joined - 1], run)) runs[joined++] = run;
  }
  runs.resize(joined);
}

ErrorCode PlanMove(const std::vector<ClusterRun>& runs, std::int64_t vcn, std::int64_t lcn,
                   std::int64_t count, std::int64_t total_clusters, MovePlan& plan) {
  // The vectors keep their memory: files of many runs are often moved run by run.
  plan.after.clear();
  plan.sources.clear();
  plan.target_count = 0;
  if (vcn < 0 || count < 1 || lcn < 0 || lcn >= total_clusters) return error::kInvalidParameter;
  if (!RunsAreSound(runs, total_clusters)) return error::kFileCorrupt;
  const std::int64_t allocation_end = runs.empty() ? 0 : runs.back().vcn + runs.back().count;
  if (vcn >= allocation_end) return error::kInvalidParameter;

  plan.before = runs;
  JoinRuns(plan.before);
  plan.target_lcn = lcn;
  Split(vcn, vcn + std::min(count, allocation_end - vcn), plan);
  if (plan.target_count > total_clusters - lcn) return error::kInvalidParameter;
  return error::kSuccess;
}

ErrorCode FromDevice(std::error_code code) {
  if (!code) return error::kSuccess;
  if (code == std::errc::no_space_on_device) return error::kDiskFull;
#ifdef EDQUOT
  if (code == std::error_code(EDQUOT, std::generic_category())) return error::kDiskFull;
#endif
  if (code == std::errc::file_too_large) return error::kFileTooLarge;
  if (code == ShortWrite()) return error::kWriteFault;
  if (code == std::errc::read_only_file_system) return error::kWriteProtect;
  if (code == std::errc::permission_denied) return error::kAccessDenied;
  if (code == std::errc::operation_not_permitted) return error::kAccessDenied;
  if (code == std::errc::not_enough_memory) return error::kNotEnoughMemory;
  if (code == std::errc::invalid_argument) return error::kInvalidParameter;
  if (code == std::errc::operation_canceled) return error::kOperationAborted;
  if (code == std::errc::no_such_file_or_directory) return error::kFileNotFound;
  return error::kGenFailure;
}

}  // namespace vornalux
