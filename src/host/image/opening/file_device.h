// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <system_error>

#include "host/image/device/block_device.h"

namespace vornalux {

// A file or a block device under an open descriptor. A growable one (a journal) grows by writing
// at or past its end; any other keeps the size that it was opened with.
class FileDevice final : public BlockDevice {
 public:
  // Takes over the descriptor, also on failure (then out stays null). Fails for what is neither a
  // regular file nor a block device.
  static std::error_code Adopt(int descriptor, bool growable, std::unique_ptr<FileDevice>& out);

  FileDevice(const FileDevice&) = delete;
  FileDevice& operator=(const FileDevice&) = delete;
  ~FileDevice() override;

  std::uint64_t Size() const override { return size_; }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  std::error_code Flush() override;
  // A hole in a file, which keeps its size.
  std::error_code GiveBack(std::uint64_t offset, std::uint64_t length) override;

  int Descriptor() const { return descriptor_; }
  bool IsBlockDevice() const { return block_device_; }
  // The unit in which partition tables of this device count, bytes.
  std::uint32_t LogicalSectorSize() const { return logical_sector_size_; }

 private:
  FileDevice(int descriptor, bool growable) : descriptor_(descriptor), growable_(growable) {}
  std::error_code Measure();
  void SendOn(std::uint64_t offset, std::size_t length);
  void Ask(std::uint64_t offset, std::size_t length, unsigned how);

  int descriptor_;
  bool growable_;
  bool block_device_ = false;
  std::uint32_t logical_sector_size_ = 512;
  std::uint64_t size_ = 0;
  std::uint64_t sent_offset_ = 0;  // of the large write that is on its way to the disk
  std::size_t sent_length_ = 0;
  std::size_t unsent_ = 0;  // bytes of small writes since the system was last asked to begin
  std::error_code lost_;    // why data will never be durable, once that is known
};

}  // namespace vornalux
