// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan_source.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <unordered_map>

namespace vornalux {
namespace {

constexpr std::int32_t kGap = -1;

struct Claim {
  std::int64_t lcn = 0;
  std::int64_t end = 0;
  std::int32_t owner = kGap;
};

template <typename Visitor>
void EachRun(const std::vector<Extent>& extents, Visitor visit) {
  std::int64_t vcn = 0;
  for (const Extent& extent : extents) {
    if (extent.Lcn >= 0 && extent.NextVcn > vcn) visit(extent.Lcn, extent.NextVcn - vcn);
    vcn = extent.NextVcn;
  }
}

std::int64_t FirstLcn(const CensusEntry& entry) {
  const auto first = std::ranges::find_if(entry.extents, [](auto& each) { return each.Lcn >= 0; });
  return first == entry.extents.end() ? -1 : first->Lcn;
}

// Names of one file have all its extents in common.
std::vector<std::size_t> PlannedAs(const std::vector<CensusEntry>& entries,
                                   const std::vector<bool>& stays, bool links) {
  std::vector<std::size_t> planned_as(entries.size());
  std::iota(planned_as.begin(), planned_as.end(), std::size_t{0});
  std::unordered_map<std::int64_t, std::size_t> names;
  for (const bool staying : {false, true}) {
    for (std::size_t i = 0; links && i < entries.size(); ++i) {
      if (stays[i] != staying) continue;
      const std::size_t name = names.emplace(FirstLcn(entries[i]), i).first->second;
      if (entries[name].extents == entries[i].extents) planned_as[i] = name;
    }
  }
  return planned_as;
}

}  // namespace

PlanSource::PlanSource(const std::vector<CensusEntry>& entries, const std::vector<bool>& stays,
                       bool links, const FreeRunList& gaps, std::int32_t clusters,
                       const std::vector<bool>& wanted)
    : planned_as(PlannedAs(entries, stays, links)) {
  std::vector<bool> left_out = stays;
  std::vector<bool> not_free(gaps.size(), false);
  std::vector<Claim> claims;
  for (const FreeRun& gap : gaps) claims.push_back({gap.start, gap.start + gap.length, kGap});
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (planned_as[i] != i) {
      left_out[i] = true;
      continue;
    }
    EachRun(entries[i].extents, [&](std::int64_t lcn, std::int64_t length) {
      if (lcn > clusters || length > clusters - lcn) {
        left_out[i] = true;
      } else {
        claims.push_back({lcn, lcn + length, static_cast<std::int32_t>(i)});
      }
    });
  }
  std::sort(claims.begin(), claims.end(),
            [](const Claim& a, const Claim& b) { return a.lcn < b.lcn; });
  const auto disputed = [&](const Claim& claim) {
    if (claim.owner != kGap) {
      left_out[static_cast<std::size_t>(claim.owner)] = true;
      return;
    }
    const auto gap =
        std::lower_bound(gaps.begin(), gaps.end(), claim.lcn,
                         [](const FreeRun& run, std::int64_t lcn) { return run.start < lcn; });
    not_free[static_cast<std::size_t>(gap - gaps.begin())] = true;
  };
  const Claim* furthest = nullptr;
  for (const Claim& claim : claims) {
    if (furthest != nullptr && claim.lcn < furthest->end) {
      disputed(*furthest);
      disputed(claim);
    }
    if (furthest == nullptr || claim.end > furthest->end) furthest = &claim;
  }

  volume.clusters = clusters;
  volume.files.resize(entries.size());
  std::vector<bool> joined(entries.size(), wanted.empty());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i]) joined[planned_as[i]] = true;
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (left_out[i]) continue;
    EachRun(entries[i].extents, [&](std::int64_t lcn, std::int64_t length) {
      const plan::Run run = {static_cast<std::int32_t>(lcn), static_cast<std::int32_t>(length)};
      std::vector<plan::Run>& own = volume.files[i].runs;
      if (joined[i] || own.empty()) return own.push_back(run);
      volume.files.push_back({.runs = {run}});
      pieces_of_.push_back(i);
    });
  }
  std::int64_t end = 0;
  std::size_t gap = 0;
  const auto block_until = [&](std::int64_t lcn) {
    if (lcn > end) {
      volume.blocked.push_back(
          {static_cast<std::int32_t>(end), static_cast<std::int32_t>(lcn - end)});
    }
  };
  for (const Claim& claim : claims) {
    const bool stays_blocked =
        claim.owner == kGap ? not_free[gap++] : left_out[static_cast<std::size_t>(claim.owner)];
    if (stays_blocked) continue;
    block_until(claim.lcn);
    end = claim.end;
  }
  block_until(clusters);
}

}  // namespace vornalux
