// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal/waiting_data.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "host/image/device/in_memory.h"
#include "host/image/journal/journal_format.h"

namespace vornalux {

using journal_format::kSector;

std::span<const std::uint8_t> WaitingData::Content(const Part& part) const {
  return std::span(memory_).subspan(part.at, InMemory(part.sectors * kSector));
}

WaitingData::Parts::const_iterator WaitingData::FirstBehind(std::uint64_t sector) const {
  const auto next = parts_.upper_bound(sector);
  if (next == parts_.begin()) return next;
  const auto before = std::prev(next);
  return before->first + before->second.sectors > sector ? before : next;
}

void WaitingData::Put(std::uint64_t place, std::span<const std::uint8_t> data,
                      std::uint64_t source) {
  if (data.empty()) return;
  const std::uint64_t sectors = data.size() / kSector;
  const std::size_t at = memory_.size();
  memory_.insert(memory_.end(), data.begin(), data.end());
  if (source == kNoSource) {
    bytes_to_record_ += data.size();
  } else {
    std::uint64_t& end = sources_[source];
    end = std::max(end, source + sectors);
  }
  auto wanted = sources_.upper_bound(place);
  if (wanted != sources_.begin() && std::prev(wanted)->second > place) --wanted;
  for (; wanted != sources_.end() && wanted->first < place + sectors; ++wanted) {
    const std::uint64_t first = std::max(wanted->first, place);
    bytes_to_record_ += (std::min(wanted->second, place + sectors) - first) * kSector;
  }
  const auto next = parts_.lower_bound(place);
  if (next != parts_.begin() && at != move_at_) {
    auto& [last_place, last] = *std::prev(next);
    const bool same_source =
        last.source == kNoSource ? source == kNoSource : last.source + last.sectors == source;
    if (last_place + last.sectors == place && same_source &&
        last.at + last.sectors * kSector == at) {
      last.sectors += sectors;
      return;
    }
  }
  parts_.emplace_hint(next, place, Part{sectors, source, at});
}

// Makes a part that covers the sector end there and another one begin.
void WaitingData::Split(std::uint64_t sector) {
  const auto next = parts_.lower_bound(sector);
  if (next == parts_.begin()) return;
  auto& [place, part] = *std::prev(next);
  const std::uint64_t head = sector - place;
  if (part.sectors <= head) return;
  const std::uint64_t source = part.source == kNoSource ? kNoSource : part.source + head;
  parts_.emplace_hint(next, sector,
                      Part{part.sectors - head, source, part.at + InMemory(head * kSector)});
  part.sectors = head;
}

void WaitingData::Erase(std::uint64_t place, std::uint64_t sectors) {
  if (parts_.empty()) return;
  Split(place);
  Split(place + sectors);
  parts_.erase(parts_.lower_bound(place), parts_.lower_bound(place + sectors));
}

void WaitingData::CopyOver(std::uint64_t offset, std::span<std::uint8_t> out) const {
  const std::uint64_t end = offset + out.size();
  for (auto part = FirstBehind(offset / kSector);
       part != parts_.end() && part->first * kSector < end; ++part) {
    const std::uint64_t start = part->first * kSector;
    const std::uint64_t from = std::max(start, offset);
    const std::uint64_t to = std::min(start + part->second.sectors * kSector, end);
    std::memcpy(out.data() + (from - offset), memory_.data() + part->second.at + (from - start),
                InMemory(to - from));
  }
}

void WaitingData::DropMove() {
  std::erase_if(parts_, [this](const auto& part) { return part.second.at >= move_at_; });
  memory_.resize(move_at_);
}

void WaitingData::Clear() {
  parts_.clear();
  sources_.clear();
  memory_.clear();
  move_at_ = 0;
  bytes_to_record_ = 0;
}

}  // namespace vornalux
