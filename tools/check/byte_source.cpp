// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/byte_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace vornalux {

FileSource::FileSource(const std::string& path) {
  file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file_ < 0) throw std::system_error(errno, std::generic_category(), path);
  // Unlike the size that stat() gives, the end of the file is right for block devices too.
  const off_t end = lseek(file_, 0, SEEK_END);
  if (end < 0) {
    const int code = errno;
    close(file_);
    throw std::system_error(code, std::generic_category(), path);
  }
  size_ = static_cast<std::uint64_t>(end);
}

FileSource::~FileSource() { close(file_); }

bool FileSource::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  if (offset > size_ || out.size() > size_ - offset) return false;
  while (!out.empty()) {
    const ssize_t got = pread(file_, out.data(), out.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out = out.subspan(static_cast<std::size_t>(got));
    offset += static_cast<std::uint64_t>(got);
  }
  return true;
}

bool MemorySource::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  if (offset > bytes_.size() || out.size() > bytes_.size() - offset) return false;
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), out.size(), out.begin());
  return true;
}

}  // namespace vornalux
