// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/dirty_flag.h"

#include <span>

#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint8_t kBootDirty = 0x01;
// The top byte of entry 1.
constexpr std::uint8_t kCleanlyUnmounted[] = {0x80, 0x08};  // FAT16, FAT32
constexpr std::uint8_t kNoDiskErrors[] = {0x40, 0x04};

std::uint8_t ReadByte(BlockDevice& device, std::uint64_t offset) {
  std::uint8_t byte = 0;
  if (const std::error_code error = device.Read(offset, std::span(&byte, 1))) {
    throw VolumeRefused("The volume's dirty flag at byte " + std::to_string(offset) +
                        " cannot be read: " + error.message());
  }
  return byte;
}

}  // namespace

DirtyFlag::DirtyFlag(BlockDevice& device, const FatGeometry& geometry, bool set_by_us) {
  if (geometry.state_offset != 0) {
    Add(device, geometry.state_offset, kBootDirty, true, set_by_us);
  }
  if (geometry.type == FatType::Fat12) return;
  const bool fat32 = geometry.type == FatType::Fat32;
  for (std::uint32_t copy = 0; copy < geometry.copies; ++copy) {
    const std::uint64_t top_byte = geometry.CopyOffset(copy) + (fat32 ? 7 : 3);
    Add(device, top_byte, kCleanlyUnmounted[fat32], false, set_by_us);
    if ((ReadByte(device, top_byte) & kNoDiskErrors[fat32]) == 0) dirty_ = true;
  }
}

void DirtyFlag::Add(BlockDevice& device, std::uint64_t offset, std::uint8_t flag,
                    bool set_when_dirty, bool set_by_us) {
  const std::uint8_t found = ReadByte(device, offset);
  const auto with = static_cast<std::uint8_t>(found | flag);
  const auto without = static_cast<std::uint8_t>(found & ~flag);
  const std::uint8_t dirty = set_when_dirty ? with : without;
  const std::uint8_t clean = set_when_dirty ? without : with;
  if (found == dirty) dirty_ = true;
  places_.push_back({offset, set_by_us ? clean : found, dirty});
}

std::error_code DirtyFlag::Write(BlockDevice& device, bool dirty) const {
  for (const Place& place : places_) {
    const std::uint8_t* const byte = dirty ? &place.dirty : &place.clean;
    if (const std::error_code error = device.Write(place.offset, std::span(byte, 1))) return error;
  }
  return {};
}

}  // namespace vornalux
