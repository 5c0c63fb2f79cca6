// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <system_error>
#include <vector>

#include "host/image/journal/sector_run.h"
#include "host/image/journal/waiting_data.h"

namespace vornalux {

// By number, so that a range is found in one step and neighbours join into runs.
using GatheredSectors = std::map<std::uint64_t, std::array<std::uint8_t, 512>>;

// What one commit brings to the volume, as its record tells of it.
class CommitContent {
 public:
  // Reads the volume as it is without the commit, at a byte offset.
  using Reader = std::function<std::error_code(std::uint64_t, std::span<std::uint8_t>)>;

  // gathered: metadata, which wins over what waits where both have the same place. Neither is
  // owned.
  CommitContent(const GatheredSectors& gathered, const WaitingData& waiting, Reader read);

  CommitContent(const CommitContent&) = delete;
  CommitContent& operator=(const CommitContent&) = delete;

  std::error_code CollectRuns();
  // In ascending order, without overlap; as long as this lives.
  const std::vector<SectorRun>& Runs() const { return runs_; }

  // The copies without what the runs replace in the same commit: metadata may have come to lie
  // where a file was for a while, and other files where one came from. The rest of both places is
  // told all the same: what somebody changed there since would be lost with the commit.
  std::error_code CollectCopies(const std::vector<CopiedRange>& copied,
                                std::vector<CopiedRange>& copies);

 private:
  using Changes = std::map<std::uint64_t, std::vector<std::uint8_t>>;  // by first sector, apart

  std::error_code CollectChanges();
  void CollectWaiting();
  std::error_code CollectRest(std::uint64_t first, std::uint64_t end,
                              std::vector<CopiedRange>& copies);

  const GatheredSectors& gathered_;
  const WaitingData& waiting_;
  Reader read_;
  Changes changes_;
  std::vector<SectorRun> runs_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace vornalux
