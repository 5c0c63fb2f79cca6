// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <utility>

#include "platform/files.h"

namespace vornalux {

// An open file that closes itself.
class OwnedFile {
 public:
  OwnedFile() = default;
  OwnedFile(Files& files, Handle handle) : files_(&files), handle_(handle) {}
  OwnedFile(OwnedFile&& other) noexcept
      : files_(other.files_), handle_(std::exchange(other.handle_, kInvalidHandle)) {}
  OwnedFile& operator=(OwnedFile&& other) noexcept {
    std::swap(files_, other.files_);
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~OwnedFile() {
    if (handle_ != kInvalidHandle) files_->CloseFile(handle_);
  }

  explicit operator bool() const { return handle_ != kInvalidHandle; }
  Handle get() const { return handle_; }

 private:
  Files* files_ = nullptr;
  Handle handle_ = kInvalidHandle;
};

}  // namespace vornalux
