// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"

namespace vornalux {

// Another device as it would be if it were written to. Writes stay in memory and the base is only
// ever read. Copies are remembered as where their bytes come from: however much is moved, only
// what was written takes memory, and nothing of the rest is read before somebody asks for it.
class ScratchDevice final : public BlockDevice {
 public:
  // Without a base the device is empty at first. A growable one grows by writing past its end; what
  // nobody wrote reads as zeros.
  explicit ScratchDevice(std::shared_ptr<BlockDevice> base, bool growable = false);

  std::uint64_t Size() const override { return size_; }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  std::error_code Flush() override { return {}; }
  // The ranges may overlap.
  std::error_code Copy(std::uint64_t from, std::uint64_t to, std::uint64_t length) override;

 private:
  using Memory = std::vector<std::uint8_t>;

  // A stretch of the device that is not what the base has in the same place.
  struct Stretch {
    std::uint64_t length = 0;
    std::uint64_t start = 0;         // in memory or, without, in the base
    std::shared_ptr<Memory> memory;  // shared with copies, and then never changed
  };
  using Stretches = std::map<std::uint64_t, Stretch>;  // by offset, apart

  static Stretch Slice(const Stretch& stretch, std::uint64_t skip, std::uint64_t length);
  bool Inside(std::uint64_t offset, std::uint64_t length) const;
  // What the device holds at offset, up to length bytes of one kind.
  Stretch At(std::uint64_t offset, std::uint64_t length) const;
  std::error_code ReadBase(std::uint64_t offset, std::span<std::uint8_t> out);
  void WritePiece(std::uint64_t offset, std::span<const std::uint8_t> data);
  void Split(std::uint64_t offset);
  void Replace(std::uint64_t offset, Stretch stretch);

  std::shared_ptr<BlockDevice> base_;
  std::uint64_t base_size_;
  bool growable_;
  std::uint64_t size_;
  Stretches stretches_;
};

}  // namespace vornalux
