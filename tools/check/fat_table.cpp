// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>

#include "check/fat_volume.h"

namespace vornalux::checking {

RawFatTable::RawFatTable(const ByteSource& source, std::uint64_t offset,
                         const RawFatGeometry& geometry, Problems& problems)
    : geometry_(geometry), problems_(problems) {
  std::vector<std::uint8_t> table(static_cast<std::size_t>(geometry.table_size));
  const std::uint64_t start =
      offset + geometry.table_start +
      static_cast<std::uint64_t>(geometry.active_table) * geometry.table_size;
  if (!source.Read(start, table)) {
    problems_.Add("file allocation table: cannot be read");
    return;
  }
  if (geometry.mirrored) CompareCopies(source, offset, table);
  Decode(table);
  owner_.resize(next_.size());
  CheckReserved();
}

void RawFatTable::CompareCopies(const ByteSource& source, std::uint64_t offset, Bytes active) {
  std::vector<std::uint8_t> copy(active.size());
  for (int i = 1; i < geometry_.tables; ++i) {
    const std::uint64_t start =
        offset + geometry_.table_start + static_cast<std::uint64_t>(i) * geometry_.table_size;
    if (!source.Read(start, copy)) {
      problems_.Add("table copy ", i, ": cannot be read");
      continue;
    }
    const auto differs = std::mismatch(active.begin(), active.end(), copy.begin());
    if (differs.first != active.end()) {
      problems_.Add("table copy ", i, ": differs from the first, at byte ",
                    differs.second - copy.begin());
    }
  }
}

void RawFatTable::Decode(Bytes table) {
  next_.resize(geometry_.EndCluster());
  for (std::size_t i = 0; i < next_.size(); ++i) {
    if (geometry_.bits == 12) {
      const unsigned pair = Load16(table, i * 3 / 2);
      next_[i] = i % 2 == 0 ? pair & 0xFFF : pair >> 4;
    } else if (geometry_.bits == 16) {
      next_[i] = Load16(table, 2 * i);
    } else {
      next_[i] = Load32(table, 4 * i) & 0x0FFFFFFF;
    }
  }
}

void RawFatTable::CheckReserved() {
  const std::uint32_t filled = geometry_.bits == 12   ? 0xF00U
                               : geometry_.bits == 16 ? 0xFF00U
                                                      : 0x0FFFFF00U;
  if (next_[0] != (filled | geometry_.media)) {
    problems_.Add("table entry 0: ", next_[0], " does not fit the media byte");
  }
  if (geometry_.bits == 12) return;
  const std::uint32_t clean = geometry_.bits == 16 ? 0x8000U : 0x08000000U;
  const std::uint32_t no_errors = clean >> 1;
  dirty_ = (next_[1] & clean) == 0 || (next_[1] & no_errors) == 0;
}

std::uint32_t RawFatTable::FreeClusters() const {
  return static_cast<std::uint32_t>(std::count(next_.begin() + 2, next_.end(), 0U));
}

std::vector<CheckedExtent> RawFatTable::Claim(std::uint32_t first, const std::string& owner) {
  std::vector<CheckedExtent> extents;
  owners_.push_back(owner);
  const auto number = static_cast<std::uint32_t>(owners_.size() - 1);
  std::int64_t vcn = 0;
  for (std::uint32_t cluster = first;; ++vcn) {
    if (cluster < 2 || cluster >= geometry_.EndCluster()) {
      problems_.Add(owner, ": its chain leads to cluster ", cluster, " after ", vcn, " clusters");
      break;
    }
    if (owner_[cluster] != 0) {
      problems_.Add(owner, ": cluster ", cluster,
                    owner_[cluster] == number ? " is in its chain twice"
                                              : " belongs to " + owners_[owner_[cluster]]);
      break;
    }
    const std::uint32_t next = next_[cluster];
    if (next == 0 || next == geometry_.Bad()) {
      problems_.Add(owner, ": cluster ", cluster, " of its chain is marked ",
                    next == 0 ? "free" : "bad");
      break;
    }
    owner_[cluster] = number;
    const std::int64_t lcn = std::int64_t{cluster} - 2;
    if (!extents.empty() && extents.back().lcn + extents.back().count == lcn) {
      ++extents.back().count;
    } else {
      extents.push_back({vcn, lcn, 1});
    }
    if (geometry_.IsEnd(next)) break;
    cluster = next;
  }
  return extents;
}

void RawFatTable::CheckLost(std::int64_t& used, std::int64_t& bad) {
  const auto lost = [this](std::uint32_t cluster) {
    return owner_[cluster] == 0 && next_[cluster] != 0 && next_[cluster] != geometry_.Bad();
  };
  for (std::uint32_t cluster = 2; cluster < geometry_.EndCluster();) {
    if (!lost(cluster)) {
      const bool is_bad = owner_[cluster] == 0 && next_[cluster] == geometry_.Bad();
      bad += is_bad;
      used += is_bad || owner_[cluster] != 0;
      ++cluster;
      continue;
    }
    const std::uint32_t first = cluster;
    while (cluster < geometry_.EndCluster() && lost(cluster)) ++cluster;
    problems_.Add("lost: cluster ", first, ", ", cluster - first,
                  " clusters: in use but in no file");
  }
}

}  // namespace vornalux::checking
