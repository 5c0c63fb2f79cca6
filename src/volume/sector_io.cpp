// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/sector_io.h"

#include <algorithm>
#include <limits>
#include <span>

namespace vornalux {

void SectorIo::Close() {
  if (sector_handle_ != kInvalidHandle) devices_.CloseDevice(sector_handle_);
  sector_handle_ = kInvalidHandle;
}

bool SectorIo::Seek(std::uint64_t offset) {
  const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(offset));
  const auto high = static_cast<std::int32_t>(offset >> 32);
  return devices_.SetPointer(sector_handle_, low, high) != RawDevices::kNoPosition;
}

void SectorIo::Write(std::uint64_t offset, std::int32_t count) {
  const std::span<const std::uint8_t> source(SectorWriteBuffer);
  const auto length = static_cast<std::uint32_t>(
      std::min<std::size_t>(source.size(), static_cast<std::size_t>(count)));
  devices_.LockRange(sector_handle_, offset, length);
  devices_.WriteDevice(sector_handle_, source.first(length));
  devices_.FlushDevice(sector_handle_);
  devices_.UnlockRange(sector_handle_, offset, length);
}

void SectorIo::ReadWriteSector(std::int64_t sector, std::int32_t count, std::uint8_t mode) {
  SectorIoFailed = False;
  Close();
  sector_handle_ = devices_.OpenDevice(device_path);
  const bool sensible =
      sector >= 0 && count >= 0 && bytes_per_sector > 0 &&
      sector <= std::numeric_limits<std::int64_t>::max() / std::max(bytes_per_sector, 1);
  if (sector_handle_ == kInvalidHandle || !sensible) {
    SectorIoFailed = True;
    Close();
    return;
  }
  const std::uint64_t offset =
      static_cast<std::uint64_t>(sector) * static_cast<std::uint64_t>(bytes_per_sector);
  if (mode == kRead || mode == kWrite) SectorIoFailed = ToBoolean(!Seek(offset));
  if (!SectorIoFailed && mode == kRead) {
    SectorBuffer.resize(static_cast<std::size_t>(count));
    SectorIoFailed = ToBoolean(!devices_.ReadDevice(sector_handle_, SectorBuffer));
  } else if (!SectorIoFailed && mode == kWrite) {
    Write(offset, count);
  }
  Close();
}

}  // namespace vornalux
