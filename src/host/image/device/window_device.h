// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <system_error>

#include "host/image/device/block_device.h"

namespace vornalux {

// length bytes of another device from offset on, such as a partition of a disk. What lies outside
// cannot be reached through it.
class WindowDevice final : public BlockDevice {
 public:
  // The window must lie inside base, which it keeps alive.
  WindowDevice(std::shared_ptr<BlockDevice> base, std::uint64_t offset, std::uint64_t length);

  std::uint64_t Size() const override { return length_; }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  std::error_code Flush() override { return base_->Flush(); }
  std::error_code Copy(std::uint64_t from, std::uint64_t to, std::uint64_t length) override;
  std::error_code GiveBack(std::uint64_t offset, std::uint64_t length) override;

 private:
  bool Inside(std::uint64_t offset, std::uint64_t length) const;

  std::shared_ptr<BlockDevice> base_;
  std::uint64_t offset_;
  std::uint64_t length_;
};

}  // namespace vornalux
