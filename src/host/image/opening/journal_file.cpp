// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/journal_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace vornalux {
namespace {

std::error_code LastError() { return {errno, std::generic_category()}; }

std::string Trouble(const char* what, std::error_code why = LastError()) {
  return std::string(what) + " (" + why.message() + ")";
}

}  // namespace

std::string ForeignWriter(const struct stat& status) {
  if (status.st_uid != ::geteuid() && status.st_uid != 0) {
    return "belongs to another user (number " + std::to_string(status.st_uid) + ")";
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "can be written by other users";
  return {};
}

FileJournalHome::~FileJournalHome() {
  if (made_ && file_ != nullptr && file_->Size() == 0) Remove();
}

bool FileJournalHome::Exists() const {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) == 0) return true;
  return errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG;
}

// Takes over the descriptor.
std::string FileJournalHome::Adopt(int descriptor, bool for_writing) {
  std::unique_ptr<FileDevice> file;
  if (const std::error_code error = FileDevice::Adopt(descriptor, for_writing, file)) {
    return "is no file (" + error.message() + ")";
  }
  struct stat status {};
  if (file->IsBlockDevice() || ::fstat(descriptor, &status) != 0) return "is no file";
  std::string foreign = ForeignWriter(status);
  if (!foreign.empty()) return foreign;
  if (status.st_nlink > 1) return "has several names (hard links; remove the others)";
  struct flock lock {};
  lock.l_type = for_writing ? F_WRLCK : F_RDLCK;
  lock.l_whence = SEEK_SET;
  if (::fcntl(descriptor, F_OFD_SETLK, &lock) != 0) {
    busy_ = errno == EAGAIN || errno == EACCES;
    if (busy_) return "is in use by another run";
    if (for_writing) return Trouble("cannot be locked");
  }
  file_ = std::move(file);
  // Whoever held it until now may have removed it.
  if (IsStillThere()) return {};
  file_.reset();
  busy_ = true;
  return "is in use by another run";
}

bool FileJournalHome::IsStillThere() const {
  struct stat ours {};
  struct stat there {};
  return ::fstat(file_->Descriptor(), &ours) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
         ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

std::string FileJournalHome::Make(std::uint64_t room) {
  // No link is followed: in a folder of many users it could lead anywhere.
  const int descriptor =
      ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor < 0 && errno == EEXIST) {
    busy_ = true;
    return "is in use by another run";
  }
  if (descriptor < 0) return Trouble("cannot be made");
  std::string why = Adopt(descriptor, true);
  if (!why.empty()) {
    if (!busy_) ::unlink(path_.c_str());
    return why;
  }
  made_ = true;
  why = Reserve(room);
  if (why.empty()) {
    std::error_code error = file_->Flush();
    if (!error) error = FlushFolder();
    if (error) why = Trouble("cannot be made durable", error);
  }
  if (!why.empty()) Remove();
  return why;
}

// A journal that finds no room in the middle of a run ends the run.
std::string FileJournalHome::Reserve(std::uint64_t room) const {
  while (::fallocate(file_->Descriptor(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(room)) != 0) {
    if (errno == EINTR) continue;
    if (errno == EOPNOTSUPP || errno == ENOSYS) break;
    return Trouble("cannot be given the room that it may need");
  }
  return {};
}

std::string FileJournalHome::Take(bool for_writing) {
  const int flags = (for_writing ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const int descriptor = ::open(path_.c_str(), flags);
  if (descriptor < 0) return Trouble("cannot be opened");
  return Adopt(descriptor, for_writing);
}

// The lock lasts as long as the store.
std::error_code FileJournalHome::Open(std::shared_ptr<BlockDevice>& store) {
  if (file_ == nullptr) return std::make_error_code(std::errc::bad_file_descriptor);
  // What nobody finds any more after an interruption is no journal: a long analysis lies behind us.
  if (!IsStillThere()) return std::make_error_code(std::errc::no_such_file_or_directory);
  store = file_;
  made_ = false;
  return {};
}

std::error_code FileJournalHome::Remove() {
  made_ = false;
  if (file_ == nullptr || !IsStillThere()) return {};
  while (::unlink(path_.c_str()) != 0) {
    if (errno != EINTR) return LastError();  // which file systems of users' programs give
  }
  const std::error_code error = FlushFolder();
  file_.reset();
  return error;
}

std::error_code FileJournalHome::FlushFolder() const {
  const std::filesystem::path folder = std::filesystem::absolute(path_).parent_path();
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return LastError();
  std::error_code error;
  while (::fsync(descriptor) != 0) {
    error = LastError();
    if (errno != EINTR) break;
    error.clear();
  }
  ::close(descriptor);
  return error;
}

}  // namespace vornalux
