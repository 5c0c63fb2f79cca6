// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vornalux {

// Free-space figures of a drive's root.
struct FreeSpace {
  std::int64_t sectors_per_cluster = 0;
  std::int64_t bytes_per_sector = 0;
  std::int64_t free_clusters = 0;
  std::int64_t total_clusters = 0;
};

// A piece of a volume's allocation bitmap: bit i of bits[k] is cluster starting_lcn + 8k + i, least
// significant bit first, 1 = in use. bitmap_size counts the clusters from starting_lcn to the end
// of the volume, which may be more than bits describes.
struct BitmapChunk {
  std::int64_t starting_lcn = 0;
  std::int64_t bitmap_size = 0;
  std::vector<std::uint8_t> bits;
};

// Pieces in which a bitmap is read: the clusters that 4,096 bytes describe.
inline constexpr std::int64_t kBitmapChunkClusters = 32768;
inline constexpr std::size_t kBitmapChunkBytes = kBitmapChunkClusters / 8;

// Where NTFS keeps room for its master file table, in LCNs.
struct NtfsVolumeData {
  std::int64_t mft_zone_start = 0;
  std::int64_t mft_zone_end = 0;
};

struct VolumeName {
  std::string label = {};
  std::string file_system = {};  // "NTFS", "FAT32", "FAT" ...
  std::uint32_t serial = 0;      // tells a medium from another in the same drive
};

// What kind of drive a root belongs to, as the system numbers them.
namespace drive_type {
inline constexpr std::uint32_t kNoRoot = 1;
inline constexpr std::uint32_t kRemovable = 2;
inline constexpr std::uint32_t kFixed = 3;
inline constexpr std::uint32_t kNetwork = 4;
inline constexpr std::uint32_t kCdRom = 5;
inline constexpr std::uint32_t kRamDisk = 6;
}  // namespace drive_type

// How a move that takes long lets the user and the timers have their say in between.
struct MoveCheckpoint {
  // Clusters that may be moved at most before they are heard again; a multiple of 16.
  std::int64_t every = 0;
  // Given the clusters moved so far. True: an end is wanted. A host whose moves leave no trace
  // until they are whole gives the move up then; others finish it. May ask for anything but another
  // move. Without it nobody is heard.
  std::function<bool(std::int64_t moved)> reached = {};
  // A file would stay in more pieces without it: worth trying though one of its moves has failed.
  bool must_finish = false;
};

// What may be asked of a volume as a whole. Drives are two characters ("C:"), roots three ("C:\").
class Volumes {
 public:
  virtual ~Volumes() = default;

  // The roots of all drives one after the other, each four characters: "C:\\" and a NUL.
  virtual std::string LogicalDriveStrings() = 0;
  virtual std::uint32_t DriveType(const std::string& root) = 0;

  // Opens "\\.\C:" for reading, shared. kInvalidHandle on failure.
  virtual Handle OpenVolume(const std::string& device_path) = 0;
  virtual void CloseVolume(Handle volume) = 0;

  virtual ErrorCode FreeSpaceFigures(const std::string& root, FreeSpace& out) = 0;
  virtual ErrorCode VolumeNames(const std::string& root, VolumeName& out) = 0;

  // Fills out.bits with up to max_bytes bytes from starting_lcn rounded down to a multiple of 8.
  // kMoreData when the volume goes on after them, kSuccess when this was the last piece.
  virtual ErrorCode VolumeBitmap(Handle volume, std::int64_t starting_lcn, std::size_t max_bytes,
                                 BitmapChunk& out) = 0;

  // Where the bitmap may have changed since `mark` was given: the first LCNs of the pieces, some of
  // them perhaps twice. The mark becomes that of now. False: it may have changed anywhere; so with
  // a mark of 0, and always where others may write to the volume, who leave no trace but in the
  // bitmap itself: there the mark stays 0.
  virtual bool BitmapChanges(Handle volume, std::uint64_t& mark,
                             std::vector<std::int64_t>& lcns) = 0;

  // Fails on volumes that are not NTFS.
  virtual ErrorCode NtfsData(Handle volume, NtfsVolumeData& out) = 0;

  // Moves cluster_count clusters of the open file from starting_vcn on to starting_lcn. All or
  // nothing: on any error the file lies where it lay. kOperationAborted: given up at a checkpoint.
  virtual ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                                 std::int64_t starting_lcn, std::uint32_t cluster_count,
                                 const MoveCheckpoint& checkpoint = {}) = 0;
};

}  // namespace vornalux
