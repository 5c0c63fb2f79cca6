// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/output/output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/image/device/short_write.h"
#include "host/image/opening/image_use.h"

namespace vornalux {
namespace {

constexpr mode_t kFileMode = 0666;

// Other devices take what is written as commands, or as their memory.
bool TakesAnyBytes(int descriptor, const struct stat& status) {
  if (!S_ISCHR(status.st_mode)) return true;
  constexpr unsigned kMemoryDevices = 1;
  constexpr unsigned kNull = 3;
  constexpr unsigned kZero = 5;
  constexpr unsigned kFull = 7;
  const unsigned number = minor(status.st_rdev);
  return ::isatty(descriptor) != 0 || (major(status.st_rdev) == kMemoryDevices &&
                                       (number == kNull || number == kZero || number == kFull));
}

std::error_code LastError() { return {errno, std::generic_category()}; }

}  // namespace

bool SameFile(const struct stat& a, const struct stat& b) {
  if (S_ISBLK(a.st_mode) && S_ISBLK(b.st_mode)) return a.st_rdev == b.st_rdev;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::error_code WriteAll(int descriptor, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(descriptor, data.data(), data.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      // A pipe or a terminal that another program has told not to wait.
      pollfd room = {descriptor, POLLOUT, 0};
      ::poll(&room, 1, -1);
      continue;
    }
    if (written < 0) return LastError();
    if (written == 0) return ShortWrite();
    data.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

OutputFile::~OutputFile() {
  if (descriptor_ < 0) return;
  struct stat now {};
  if (!started_ && !created_.empty() && ::lstat(created_.c_str(), &now) == 0 &&
      SameFile(now, status_)) {
    ::unlink(created_.c_str());
  }
  ::close(descriptor_);
}

void OutputFile::Refuse(const std::string& why) const { throw OutputRefused(name_ + " " + why); }

void OutputFile::Open(const std::string& option, const std::string& path) {
  name_ = option + " " + path;
  // Looked at before it is opened: opening alone can do things to a device.
  struct stat before {};
  if (::stat(path.c_str(), &before) == 0) {
    if (S_ISBLK(before.st_mode)) Refuse("is a block device: what it holds would be lost.");
    if (S_ISDIR(before.st_mode)) Refuse("is a folder.");
  }
  OpenDescriptor(path);
  if (descriptor_ < 0) Refuse("cannot be written: " + LastError().message());
  if (::fstat(descriptor_, &status_) != 0) {
    Refuse("cannot be written: " + LastError().message());
  }
  if (S_ISBLK(status_.st_mode)) Refuse("is a block device: what it holds would be lost.");
  if (!TakesAnyBytes(descriptor_, status_)) Refuse("is a device that is no terminal.");
  if (!S_ISREG(status_.st_mode)) return;
  if (const auto use = FindUse(descriptor_)) Refuse(use->what + ".");
}

void OutputFile::OpenToAppend(const std::string& option, const std::string& path) {
  append_ = true;
  Open(option, path);
  // Somebody's volume, or another file that lines at its end would be no good to.
  if (!S_ISREG(status_.st_mode)) return;
  std::array<char, 4096> begin = {};
  const ssize_t count = ::pread(descriptor_, begin.data(), begin.size(), 0);
  if (count > 0 && std::find(begin.data(), begin.data() + count, '\0') != begin.data() + count) {
    Refuse("is no text file.");
  }
}

void OutputFile::UseStandardOutput(const std::string& option) {
  name_ = option + " -";
  standard_output_ = true;
  constexpr int kBehindStandardStreams = 3;
  descriptor_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, kBehindStandardStreams);
  if (descriptor_ < 0 || ::fstat(descriptor_, &status_) != 0) {
    Refuse("cannot be written: " + LastError().message());
  }
}

void OutputFile::Lock() const {
  if (!S_ISREG(status_.st_mode) || standard_output_) return;
  // Also what keeps another run from taking the file for a volume meanwhile.
  struct flock lock {};
  // Logs of several runs at a time go into one file. A lock that is shared takes reading, too.
  const int access = ::fcntl(descriptor_, F_GETFL) & O_ACCMODE;
  lock.l_type = append_ && access == O_RDWR ? F_RDLCK : F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (::fcntl(descriptor_, F_OFD_SETLK, &lock) != 0 && (errno == EAGAIN || errno == EACCES)) {
    Refuse("is in use by another program or another run of this one.");
  }
}

void OutputFile::OpenDescriptor(const std::string& path) {
  struct stat before {};
  // A pipe that is opened for reading, too, takes what nobody will read.
  const bool pipe = ::stat(path.c_str(), &before) == 0 && S_ISFIFO(before.st_mode);
  const int access = append_ && !pipe ? O_RDWR : O_WRONLY;
  const int flags = access | (append_ ? O_APPEND : 0) | O_CLOEXEC | O_NOCTTY;
  descriptor_ = ::open(path.c_str(), flags);
  if (descriptor_ < 0 && append_ && errno == EACCES) {
    descriptor_ = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY);
  }
  if (descriptor_ >= 0 || errno != ENOENT) return;
  descriptor_ = ::open(path.c_str(), flags | O_CREAT, kFileMode);
  if (descriptor_ < 0) return;
  // The file that a link led to, when the path is one.
  std::error_code error;
  created_ = std::filesystem::canonical(path, error).string();
}

std::error_code OutputFile::Start() {
  if (std::exchange(started_, true)) return {};
  // What stands before it in standard output was written by others.
  if (standard_output_ || !S_ISREG(status_.st_mode) || ::ftruncate(descriptor_, 0) == 0) return {};
  return LastError();
}

std::error_code OutputFile::Append(std::string_view text) {
  started_ = true;
  return WriteAll(descriptor_, text);
}

std::error_code OutputFile::Replace(std::span<const char> content) {
  if (const std::error_code error = Start()) return error;
  if (const std::error_code error = Append({content.data(), content.size()})) return error;
  // Some file systems say only now that there was no room.
  return ::close(std::exchange(descriptor_, -1)) == 0 ? std::error_code() : LastError();
}

}  // namespace vornalux
