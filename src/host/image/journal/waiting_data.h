// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "host/image/journal/sector_run.h"

namespace vornalux {

// File data on its way to places that the durable state still refers to: it waits in memory until a
// record tells of it. All numbers are sectors of 512 bytes.
class WaitingData {
 public:
  struct Part {
    std::uint64_t sectors = 0;
    std::uint64_t source = kNoSource;  // where the same content lies on the device
    std::size_t at = 0;                // in memory
  };
  using Parts = std::map<std::uint64_t, Part>;  // by place, apart

  bool Empty() const { return parts_.empty(); }
  const Parts& All() const { return parts_; }
  std::span<const std::uint8_t> Content(const Part& part) const;

  // The first part that ends behind the sector.
  Parts::const_iterator FirstBehind(std::uint64_t sector) const;

  // Nothing may wait there already.
  void Put(std::uint64_t place, std::span<const std::uint8_t> data, std::uint64_t source);
  // Nobody wants it there any more.
  void Erase(std::uint64_t place, std::uint64_t sectors);
  // Lays what waits over what was read at offset, bytes.
  void CopyOver(std::uint64_t offset, std::span<std::uint8_t> out) const;

  // What was put since the last BeginMove() goes, unless it is kept.
  void BeginMove() { move_at_ = memory_.size(); }
  void DropMove();
  void Clear();

  // Memory that is taken, and what a record would have to hold of it, about: data without a source,
  // and such whose source other data is waiting for.
  std::size_t Bytes() const { return memory_.size(); }
  std::uint64_t BytesToRecord() const { return bytes_to_record_; }

 private:
  void Split(std::uint64_t sector);

  Parts parts_;
  std::map<std::uint64_t, std::uint64_t> sources_;  // first sector and end, of all that was put
  std::vector<std::uint8_t> memory_;                // kept for the next commit
  std::size_t move_at_ = 0;
  std::uint64_t bytes_to_record_ = 0;
};

}  // namespace vornalux
