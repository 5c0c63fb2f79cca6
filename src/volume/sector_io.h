// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/raw_devices.h"

namespace vornalux {

// Sectors of a volume's device, below its file system.
class SectorIo {
 public:
  static constexpr std::uint8_t kRead = 0;
  static constexpr std::uint8_t kWrite = 1;

  explicit SectorIo(RawDevices& devices) : devices_(devices) {}
  ~SectorIo() { Close(); }
  SectorIo(const SectorIo&) = delete;
  SectorIo& operator=(const SectorIo&) = delete;

  std::string device_path;            // "\\.\C:"
  std::int32_t bytes_per_sector = 0;  // the unit of sector numbers
  std::vector<std::uint8_t> SectorBuffer;
  std::vector<std::uint8_t> SectorWriteBuffer;
  Boolean SectorIoFailed = False;

  // Reads count bytes from the sector on into SectorBuffer, or writes as many of SectorWriteBuffer.
  // What a write came to is not told. Any other mode only opens and closes the device.
  void ReadWriteSector(std::int64_t sector, std::int32_t count, std::uint8_t mode);

 private:
  bool Seek(std::uint64_t offset);
  void Write(std::uint64_t offset, std::int32_t count);
  void Close();

  RawDevices& devices_;
  Handle sector_handle_ = kInvalidHandle;
};

}  // namespace vornalux
