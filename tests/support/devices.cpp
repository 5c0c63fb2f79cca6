// SPDX-License-Identifier: GPL-2.0-or-later
#include "support/devices.h"

#include <algorithm>

namespace vornalux::test {
namespace {

constexpr std::size_t kSector = 512;

}  // namespace

std::error_code MemoryDevice::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (offset > bytes_.size() || out.size() > bytes_.size() - offset) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), out.size(), out.begin());
  return {};
}

std::error_code MemoryDevice::Write(std::uint64_t offset, std::span<const std::uint8_t> data) {
  const std::uint64_t end = offset + data.size();
  if (end > bytes_.size() && !growable_) return std::make_error_code(std::errc::invalid_argument);
  if (end > bytes_.size()) bytes_.resize(end);
  std::copy(data.begin(), data.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
  return {};
}

void PowerCutDevice::Apply(const DeviceEvent& event) {
  switch (event.kind) {
    case DeviceEvent::Kind::Write:
      pending_.push_back(event);
      current_.Write(event.offset, event.data);
      break;
    case DeviceEvent::Kind::Flush:
      for (const DeviceEvent& write : pending_) durable_.Write(write.offset, write.data);
      pending_.clear();
      break;
    case DeviceEvent::Kind::Create:
    case DeviceEvent::Kind::Remove:
      durable_.Content().clear();
      current_.Content().clear();
      pending_.clear();
  }
}

Bytes PowerCutDevice::Reordered(Random& random) const {
  MemoryDevice left = durable_;
  // Now most of them, now hardly any.
  const std::uint64_t percent = Below(random, 101);
  for (const DeviceEvent& write : pending_) {
    const std::span<const std::uint8_t> data = write.data;
    for (std::size_t at = 0; at < data.size();) {
      const std::size_t length =
          std::min<std::size_t>(data.size() - at, kSector - (write.offset + at) % kSector);
      if (Below(random, 100) < percent) left.Write(write.offset + at, data.subspan(at, length));
      at += length;
    }
  }
  return std::move(left.Content());
}

bool FailingDevice::Fails(unsigned call) {
  if ((calls_ & call) == 0 || fail_at_ < 0) return false;
  const bool fails = next_ == fail_at_ || (for_ever_ && next_ > fail_at_);
  ++next_;
  has_failed_ = has_failed_ || fails;
  return fails;
}

std::error_code MemoryJournalHome::Open(std::shared_ptr<BlockDevice>& store) {
  if (journal_.refuse_open) return std::make_error_code(std::errc::permission_denied);
  if (!journal_.exists) {
    journal_.store.Content().clear();
    if (journal_.log != nullptr) journal_.log->push_back({1, DeviceEvent::Kind::Create, 0, {}});
  }
  journal_.exists = true;
  store = std::make_unique<RecordingDevice>(
      journal_.through != nullptr ? *journal_.through : journal_.store, journal_.log, 1);
  return {};
}

std::error_code MemoryJournalHome::Remove() {
  if (journal_.log != nullptr) journal_.log->push_back({1, DeviceEvent::Kind::Remove, 0, {}});
  journal_.exists = false;
  journal_.store.Content().clear();
  return {};
}

}  // namespace vornalux::test
