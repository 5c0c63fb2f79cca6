// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>
#include <vector>

#include "host/image/journal/transaction.h"
#include "host/image/ntfs/ntfs_library.h"
#include "host/image/volume/allocation_map.h"

namespace vornalux {

// A Transaction as the library's block device: whatever the library writes is gathered there. It
// also sees every change that the library makes to $Bitmap, including those on its own account
// (attribute lists, growth of $MFT), and keeps an AllocationMap equal to it.
class NtfsDevice {
 public:
  // length bytes of $Bitmap that lie at offset of the volume; the first bit is for first_lcn.
  struct BitmapPiece {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    std::int64_t first_lcn = 0;
  };

  explicit NtfsDevice(Transaction& transaction) : transaction_(transaction) {}
  NtfsDevice(const NtfsDevice&) = delete;
  NtfsDevice& operator=(const NtfsDevice&) = delete;

  // A handle for ntfs_device_mount(), to be freed by ntfs_umount() or ntfs_device_free(). Null
  // without memory.
  ntfs_device* NewHandle();

  // pieces by offset; map is not owned.
  void WatchBitmap(std::vector<BitmapPiece> pieces, AllocationMap* map);

  // Writes into $Bitmap that clusters are used, or free, by what the map knows of their neighbours:
  // nothing is read for it. False where the library has to do it.
  bool SetBits(std::int64_t lcn, std::int64_t count, bool used);

  // Writes from here on are swallowed: the library's last words at the end of a mount.
  void DropWrites(bool drop) { drop_writes_ = drop; }

  // Small reads bring what lies around them as well, for as long as that turns out to be wanted:
  // file records are read one by one, neighbours soon after each other. From the first move on
  // nothing is kept, since data may come to lie anywhere.
  void EndReadingAhead();

  // The last error of the device underneath, once.
  std::error_code TakeError();

  // The library's calls. Bytes done, or -1 with errno set; 0 at the end of the volume.
  s64 Read(s64 offset, std::span<std::uint8_t> out);
  s64 Write(s64 offset, std::span<const std::uint8_t> data);
  s64 Seek(s64 offset, int whence);
  s64 Position() const { return position_; }

 private:
  struct Window {
    std::uint64_t offset = 0;
    std::vector<std::uint8_t> bytes;  // empty: nothing is there
  };

  s64 Fail(std::error_code error);
  bool ReadAround(std::uint64_t offset, std::span<std::uint8_t> out);
  void FollowBitmap(std::uint64_t offset, std::span<const std::uint8_t> data);

  Transaction& transaction_;
  std::vector<BitmapPiece> bitmap_;
  AllocationMap* map_ = nullptr;
  std::error_code error_;
  s64 position_ = 0;
  bool drop_writes_ = false;
  std::array<Window, 32> windows_;
  std::size_t next_window_ = 0;
  std::int64_t credit_ = 2048;  // of reading ahead; what is not used up
  bool ahead_ended_ = false;
};

}  // namespace vornalux
