// SPDX-License-Identifier: GPL-2.0-or-later
#include "crash/states/paged_device.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vornalux::test {

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
  a = (a ^ 0x9E3779B97F4A7C15) * 0xBF58476D1CE4E5B9;
  a = (a ^ a >> 32 ^ b) * 0x94D049BB133111EB;
  return a ^ a >> 29;
}

std::uint64_t HashBytes(std::span<const std::uint8_t> bytes) {
  std::array<std::uint64_t, 4> lanes = {1, 2, 3, bytes.size()};
  std::array<std::uint64_t, 4> words{};
  while (!bytes.empty()) {
    const std::size_t length = std::min(bytes.size(), sizeof words);
    std::memcpy(words.data(), bytes.data(), length);
    for (std::size_t i = 0; i < lanes.size(); ++i) lanes[i] = Mix(lanes[i], words[i]);
    bytes = bytes.subspan(length);
  }
  return Mix(Mix(lanes[0], lanes[1]), Mix(lanes[2], lanes[3]));
}

std::span<const std::uint8_t> PagedDevice::Below(std::uint32_t page) const {
  const std::size_t at = page * kPage;
  return std::span(*base_).subspan(at, std::min(kPage, base_->size() - at));
}

std::error_code PagedDevice::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (offset > Size() || out.size() > Size() - offset) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  while (!out.empty()) {
    const auto page = static_cast<std::uint32_t>(offset / kPage);
    const std::size_t at = offset % kPage;
    const std::size_t length = std::min(out.size(), kPage - at);
    const std::uint8_t* const from = slots_[page] != 0 ? Above(page).data() : Below(page).data();
    std::memcpy(out.data(), from + at, length);
    out = out.subspan(length);
    offset += length;
  }
  return {};
}

std::error_code PagedDevice::Write(std::uint64_t offset, std::span<const std::uint8_t> data) {
  if (offset > Size() || data.size() > Size() - offset) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  while (!data.empty()) {
    const auto page = static_cast<std::uint32_t>(offset / kPage);
    const std::size_t at = offset % kPage;
    const std::size_t length = std::min(data.size(), kPage - at);
    if (slots_[page] == 0) {
      written_.push_back(page);
      slots_[page] = static_cast<std::uint32_t>(written_.size());
      pages_.resize(written_.size() * kPage);
      hashes_.push_back(kUnknown);
      const auto below = Below(page);
      std::memcpy(Above(page).data(), below.data(), below.size());
    }
    std::memcpy(Above(page).data() + at, data.data(), length);
    hashes_[slots_[page] - 1] = kUnknown;
    data = data.subspan(length);
    offset += length;
  }
  return {};
}

PageChanges PagedDevice::Changes() const {
  PageChanges changes;
  for (const std::uint32_t page : written_) {
    std::uint64_t& hash = hashes_[slots_[page] - 1];
    if (hash == kUnknown) {
      const auto below = Below(page);
      const auto above = std::span(pages_).subspan((slots_[page] - 1) * kPage, below.size());
      const bool same = std::memcmp(below.data(), above.data(), below.size()) == 0;
      hash = same ? kSame : HashBytes(above) | 2;
    }
    if (hash != kSame) changes.emplace_back(page, hash);
  }
  std::sort(changes.begin(), changes.end());
  return changes;
}

Bytes PagedDevice::Content() const {
  PagedDevice copy = *this;
  Bytes content(Size());
  copy.Read(0, content);
  return content;
}

}  // namespace vornalux::test
