// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/window_device.h"

#include <algorithm>
#include <utility>

namespace vornalux {

WindowDevice::WindowDevice(std::shared_ptr<BlockDevice> base, std::uint64_t offset,
                           std::uint64_t length)
    : base_(std::move(base)), offset_(std::min(offset, base_->Size())) {
  length_ = std::min(length, base_->Size() - offset_);
}

bool WindowDevice::Inside(std::uint64_t offset, std::size_t length) const {
  return offset <= length_ && length <= length_ - offset;
}

std::error_code WindowDevice::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (!Inside(offset, out.size())) return std::make_error_code(std::errc::invalid_argument);
  return base_->Read(offset_ + offset, out);
}

std::error_code WindowDevice::Write(std::uint64_t offset, std::span<const std::uint8_t> data) {
  if (!Inside(offset, data.size())) return std::make_error_code(std::errc::invalid_argument);
  return base_->Write(offset_ + offset, data);
}

}  // namespace vornalux
