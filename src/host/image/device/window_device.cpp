// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/device/window_device.h"

#include <algorithm>
#include <utility>

namespace vornalux {

WindowDevice::WindowDevice(std::shared_ptr<BlockDevice> base, std::uint64_t offset,
                           std::uint64_t length)
    : base_(std::move(base)), offset_(std::min(offset, base_->Size())) {
  length_ = std::min(length, base_->Size() - offset_);
}

bool WindowDevice::Inside(std::uint64_t offset, std::uint64_t length) const {
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

std::error_code WindowDevice::Copy(std::uint64_t from, std::uint64_t to, std::uint64_t length) {
  if (!Inside(from, length) || !Inside(to, length)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  return base_->Copy(offset_ + from, offset_ + to, length);
}

std::error_code WindowDevice::GiveBack(std::uint64_t offset, std::uint64_t length) {
  if (!Inside(offset, length)) return std::make_error_code(std::errc::invalid_argument);
  return base_->GiveBack(offset_ + offset, length);
}

}  // namespace vornalux
