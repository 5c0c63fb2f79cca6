// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace vornalux {
namespace {

std::error_code LastError() { return {errno, std::generic_category()}; }

}  // namespace

bool FileJournalHome::Exists() const {
  struct stat status {};
  return ::lstat(path_.c_str(), &status) == 0 || errno != ENOENT;
}

std::error_code FileJournalHome::OpenFile(int flags, std::unique_ptr<FileDevice>& device) const {
  // No link is followed: in a folder of many users it could lead anywhere.
  const int descriptor = ::open(path_.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (descriptor < 0) return LastError();
  const bool growable = (flags & O_ACCMODE) != O_RDONLY;
  if (const std::error_code error = FileDevice::Adopt(descriptor, growable, device)) return error;
  if (device->IsBlockDevice()) return std::make_error_code(std::errc::no_such_device);
  return {};
}

std::error_code FileJournalHome::Open(std::unique_ptr<BlockDevice>& store) {
  std::unique_ptr<FileDevice> device;
  if (const std::error_code error = OpenFile(O_RDWR | O_CREAT, device)) return error;
  if (const std::error_code error = device->Flush()) return error;
  if (const std::error_code error = FlushFolder()) return error;
  store = std::move(device);
  return {};
}

std::error_code FileJournalHome::OpenForReading(std::unique_ptr<BlockDevice>& store) const {
  std::unique_ptr<FileDevice> device;
  if (const std::error_code error = OpenFile(O_RDONLY, device)) return error;
  store = std::move(device);
  return {};
}

std::error_code FileJournalHome::Remove() {
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) return LastError();
  return FlushFolder();
}

std::error_code FileJournalHome::FlushFolder() const {
  const std::filesystem::path folder = std::filesystem::absolute(path_).parent_path();
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return LastError();
  std::error_code error;
  if (::fsync(descriptor) != 0) error = LastError();
  ::close(descriptor);
  return error;
}

}  // namespace vornalux
