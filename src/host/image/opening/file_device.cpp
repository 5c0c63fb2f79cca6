// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/file_device.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "host/image/device/short_write.h"

namespace vornalux {
namespace {

constexpr std::size_t kLargeWrite = std::size_t{1} << 20;
constexpr std::size_t kManySmallWrites = std::size_t{8} << 20;  // bytes of them together

std::error_code LastError() { return {errno, std::generic_category()}; }

bool Inside(std::uint64_t offset, std::size_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

}  // namespace

std::error_code FileDevice::Adopt(int descriptor, bool growable, std::unique_ptr<FileDevice>& out) {
  std::unique_ptr<FileDevice> device(new FileDevice(descriptor, growable));
  if (const std::error_code error = device->Measure()) return error;
  out = std::move(device);
  return {};
}

FileDevice::~FileDevice() { ::close(descriptor_); }

std::error_code FileDevice::Measure() {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) return LastError();
  if (S_ISREG(status.st_mode)) {
    size_ = static_cast<std::uint64_t>(status.st_size);
    return {};
  }
  if (!S_ISBLK(status.st_mode)) return std::make_error_code(std::errc::no_such_device);
  block_device_ = true;
  int sector_size = 0;
  if (::ioctl(descriptor_, BLKGETSIZE64, &size_) != 0) return LastError();
  if (::ioctl(descriptor_, BLKSSZGET, &sector_size) != 0) return LastError();
  logical_sector_size_ = static_cast<std::uint32_t>(sector_size);
  return {};
}

std::error_code FileDevice::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (!Inside(offset, out.size(), size_)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  while (!out.empty()) {
    const ssize_t done = ::pread(descriptor_, out.data(), out.size(), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return LastError();
    // The file was cut short under us.
    if (done == 0) return std::make_error_code(std::errc::io_error);
    offset += static_cast<std::uint64_t>(done);
    out = out.subspan(static_cast<std::size_t>(done));
  }
  return {};
}

// Left to itself the system holds as much of a large copy as memory takes, and the next flush waits
// for all of it, with nobody heard meanwhile. So what was written is sent on its way at once, and
// what was sent before it is awaited: reading and writing still overlap.
void FileDevice::SendOn(std::uint64_t offset, std::size_t length) {
  Ask(offset, length, SYNC_FILE_RANGE_WRITE);
  if (sent_length_ > 0) {
    Ask(sent_offset_, sent_length_,
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
  }
  sent_offset_ = offset;
  sent_length_ = length;
}

void FileDevice::Ask(std::uint64_t offset, std::size_t length, unsigned how) {
  if (::sync_file_range(descriptor_, static_cast<off_t>(offset), static_cast<off_t>(length), how) ==
      0) {
    return;
  }
  // It is told once. Where the call is not known, nothing is lost but patience.
  const bool gone = errno == EIO || errno == ENOSPC || errno == EDQUOT;
  if (gone && !lost_) lost_ = LastError();
}

std::error_code FileDevice::Write(std::uint64_t offset, std::span<const std::uint8_t> data) {
  const std::uint64_t limit =
      growable_ ? static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) : size_;
  if (!Inside(offset, data.size(), limit)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  const std::uint64_t start = offset;
  const std::size_t length = data.size();
  while (!data.empty()) {
    const ssize_t done =
        ::pwrite(descriptor_, data.data(), data.size(), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return LastError();
    if (done == 0) return ShortWrite();
    offset += static_cast<std::uint64_t>(done);
    data = data.subspan(static_cast<std::size_t>(done));
    size_ = std::max(size_, offset);
  }
  if (length >= kLargeWrite) {
    SendOn(start, length);
  } else if (unsent_ += length; unsent_ >= kManySmallWrites) {
    Ask(0, 0, SYNC_FILE_RANGE_WRITE);  // all there is; nobody waits for it
    unsent_ = 0;
  }
  return {};
}

std::error_code FileDevice::Flush() {
  while (::fdatasync(descriptor_) != 0) {
    if (errno != EINTR) return LastError();
  }
  sent_length_ = 0;
  unsent_ = 0;
  return lost_;
}

std::error_code FileDevice::GiveBack(std::uint64_t offset, std::uint64_t length) {
  if (offset > size_ || length > size_ - offset) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  std::uint64_t range[] = {offset, length};
  const auto ask = [&] {
    if (block_device_) return ::ioctl(descriptor_, BLKDISCARD, range);
    return ::fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                       static_cast<off_t>(offset), static_cast<off_t>(length));
  };
  while (ask() != 0) {
    if (errno == ENOSYS || errno == ENOTTY) errno = EOPNOTSUPP;
    if (errno != EINTR) return LastError();
  }
  return {};
}

}  // namespace vornalux
