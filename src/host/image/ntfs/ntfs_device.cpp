// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_device.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

namespace vornalux {
namespace {

NtfsDevice& Self(ntfs_device* handle) { return *static_cast<NtfsDevice*>(handle->d_private); }

// Exceptions must not pass through the library's C frames.
template <typename Call>
s64 Guarded(Call call) {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (...) {
    errno = EIO;
  }
  return -1;
}

s64 ReadAt(ntfs_device* handle, void* buffer, s64 count, s64 offset) {
  if (count < 0) {
    errno = EINVAL;
    return -1;
  }
  return Guarded([&] {
    return Self(handle).Read(offset,
                             {static_cast<std::uint8_t*>(buffer), static_cast<std::size_t>(count)});
  });
}

s64 WriteAt(ntfs_device* handle, const void* buffer, s64 count, s64 offset) {
  if (count < 0) {
    errno = EINVAL;
    return -1;
  }
  return Guarded([&] {
    return Self(handle).Write(
        offset, {static_cast<const std::uint8_t*>(buffer), static_cast<std::size_t>(count)});
  });
}

}  // namespace

extern "C" {

static int DeviceOpen(ntfs_device* handle, int) {
  SetOpen(handle, true);
  return 0;
}

static int DeviceClose(ntfs_device* handle) {
  SetOpen(handle, false);
  return 0;
}

static s64 DeviceSeek(ntfs_device* handle, s64 offset, int whence) {
  return Self(handle).Seek(offset, whence);
}

static s64 DevicePread(ntfs_device* handle, void* buffer, s64 count, s64 offset) {
  return ReadAt(handle, buffer, count, offset);
}

static s64 DevicePwrite(ntfs_device* handle, const void* buffer, s64 count, s64 offset) {
  return WriteAt(handle, buffer, count, offset);
}

static s64 DeviceRead(ntfs_device* handle, void* buffer, s64 count) {
  const s64 position = Self(handle).Position();
  const s64 done = ReadAt(handle, buffer, count, position);
  if (done > 0) Self(handle).Seek(position + done, SEEK_SET);
  return done;
}

static s64 DeviceWrite(ntfs_device* handle, const void* buffer, s64 count) {
  const s64 position = Self(handle).Position();
  const s64 done = WriteAt(handle, buffer, count, position);
  if (done > 0) Self(handle).Seek(position + done, SEEK_SET);
  return done;
}

// What is gathered becomes durable by a commit, never by the library's wish.
static int DeviceSync(ntfs_device* handle) {
  SetSynced(handle);
  return 0;
}

static int DeviceStat(ntfs_device*, struct stat*) {
  errno = ENOTSUP;
  return -1;
}

static int DeviceIoctl(ntfs_device*, unsigned long, void*) {
  errno = ENOTSUP;
  return -1;
}

}  // extern "C"

ntfs_device* NtfsDevice::NewHandle() {
  static ntfs_device_operations operations = {DeviceOpen,  DeviceClose, DeviceSeek,   DeviceRead,
                                              DeviceWrite, DevicePread, DevicePwrite, DeviceSync,
                                              DeviceStat,  DeviceIoctl};
  position_ = 0;
  return ntfs_device_alloc("volume", 0, &operations, this);
}

void NtfsDevice::WatchBitmap(std::vector<BitmapPiece> pieces, AllocationMap* map) {
  bitmap_ = std::move(pieces);
  map_ = map;
}

void NtfsDevice::EndReadingAhead() {
  if (std::exchange(ahead_ended_, true)) return;
  for (Window& window : windows_) window = {};
}

// False when the bytes have to be read for themselves, as those at a bad spot.
bool NtfsDevice::ReadAround(std::uint64_t offset, std::span<std::uint8_t> out) {
  constexpr std::size_t kWindow = std::size_t{16} << 10;
  constexpr std::size_t kSmall = 4096;
  // A window costs as much as some single reads.
  constexpr std::int64_t kCost = 32;
  constexpr std::int64_t kGain = 8;
  constexpr std::int64_t kMostCredit = 2048;
  const std::uint64_t start = offset / kWindow * kWindow;
  if (ahead_ended_ || out.size() > kSmall || offset + out.size() > start + kWindow) return false;
  auto window = std::find_if(windows_.begin(), windows_.end(), [start](const Window& each) {
    return each.offset == start && !each.bytes.empty();
  });
  if (window == windows_.end()) {
    // Now and then it is tried again.
    if (credit_ < kCost) {
      ++credit_;
      return false;
    }
    credit_ -= kCost;
    window = windows_.begin() + static_cast<std::ptrdiff_t>(next_window_);
    next_window_ = (next_window_ + 1) % windows_.size();
    const std::uint64_t length = std::min<std::uint64_t>(kWindow, transaction_.Size() - start);
    window->offset = start;
    window->bytes.resize(static_cast<std::size_t>(length));
    if (transaction_.Read(start, window->bytes)) {
      transaction_.TakeReadFault();  // nobody has asked for it
      EndReadingAhead();
      return false;
    }
  } else {
    credit_ = std::min(credit_ + kGain, kMostCredit);
  }
  if (offset + out.size() > start + window->bytes.size()) return false;
  std::copy_n(window->bytes.begin() + static_cast<std::ptrdiff_t>(offset - start), out.size(),
              out.begin());
  return true;
}

std::error_code NtfsDevice::TakeError() { return std::exchange(error_, {}); }

s64 NtfsDevice::Fail(std::error_code error) {
  error_ = error;
  errno = error.value() != 0 && error.category() == std::generic_category() ? error.value()
          : error.category() == std::system_category()                      ? error.value()
                                                                            : EIO;
  return -1;
}

s64 NtfsDevice::Seek(s64 offset, int whence) {
  const auto size = static_cast<s64>(transaction_.Size());
  const s64 base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position_ : size;
  s64 position = 0;
  if (__builtin_add_overflow(base, offset, &position) || position < 0 || position > size) {
    errno = EINVAL;
    return -1;
  }
  return position_ = position;
}

s64 NtfsDevice::Read(s64 offset, std::span<std::uint8_t> out) {
  if (offset < 0) {
    errno = EINVAL;
    return -1;
  }
  const auto from = static_cast<std::uint64_t>(offset);
  if (from >= transaction_.Size()) return 0;
  const std::uint64_t length = std::min<std::uint64_t>(out.size(), transaction_.Size() - from);
  out = out.first(static_cast<std::size_t>(length));
  if (ReadAround(from, out)) return static_cast<s64>(length);
  if (const std::error_code error = transaction_.Read(from, out)) return Fail(error);
  return static_cast<s64>(length);
}

s64 NtfsDevice::Write(s64 offset, std::span<const std::uint8_t> data) {
  if (drop_writes_) return static_cast<s64>(data.size());
  EndReadingAhead();
  if (offset < 0) {
    errno = EINVAL;
    return -1;
  }
  const auto to = static_cast<std::uint64_t>(offset);
  if (const std::error_code error = transaction_.Write(to, data)) return Fail(error);
  if (map_ != nullptr) FollowBitmap(to, data);
  return static_cast<s64>(data.size());
}

bool NtfsDevice::SetBits(std::int64_t lcn, std::int64_t count, bool used) {
  constexpr std::int64_t kClusters = std::int64_t{512} * 8;  // of a sector
  if (map_ == nullptr || lcn < 0 || count <= 0 || lcn > map_->Clusters() - count) return false;
  const std::int64_t first = lcn / kClusters * kClusters;
  const std::int64_t end = (lcn + count + kClusters - 1) / kClusters * kClusters;
  // What stands behind the last cluster is the library's.
  if (end > map_->Clusters()) return false;
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>((end - first) / 8));
  std::size_t written = 0;
  if (used) {
    map_->Use(lcn, count);
  } else {
    map_->Free(lcn, count);
  }
  map_->Copy(first, bytes);
  for (const BitmapPiece& piece : bitmap_) {
    const std::int64_t from = std::max(first, piece.first_lcn);
    const std::int64_t to =
        std::min(end, piece.first_lcn + static_cast<std::int64_t>(piece.length) * 8);
    if (from >= to) continue;
    const auto part = std::span(bytes).subspan(static_cast<std::size_t>((from - first) / 8),
                                               static_cast<std::size_t>((to - from) / 8));
    const auto offset = piece.offset + static_cast<std::uint64_t>(from - piece.first_lcn) / 8;
    if (const std::error_code error = transaction_.Write(offset, part)) {
      Fail(error);
      return false;
    }
    written += part.size();
  }
  return written == bytes.size();
}

void NtfsDevice::FollowBitmap(std::uint64_t offset, std::span<const std::uint8_t> data) {
  const std::uint64_t end = offset + data.size();
  auto piece = std::upper_bound(bitmap_.begin(), bitmap_.end(), offset,
                                [](std::uint64_t value, const BitmapPiece& each) {
                                  return value < each.offset + each.length;
                                });
  for (; piece != bitmap_.end() && piece->offset < end; ++piece) {
    const std::uint64_t from = std::max(offset, piece->offset);
    const std::uint64_t to = std::min(end, piece->offset + piece->length);
    auto lcn = piece->first_lcn + static_cast<std::int64_t>(from - piece->offset) * 8;
    for (std::uint64_t at = from; at < to; ++at, lcn += 8) {
      map_->SetByte(lcn, data[static_cast<std::size_t>(at - offset)]);
    }
  }
}

}  // namespace vornalux
