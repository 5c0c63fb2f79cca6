// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/check_library.h"

namespace vornalux {

// fmifs.dll, the system's library of file-system utilities. One check runs at a time in a process,
// since its callback is not told whose it is.
class WindowsCheckLibrary final : public CheckLibrary {
 public:
  WindowsCheckLibrary() = default;
  ~WindowsCheckLibrary() override { Free(); }
  WindowsCheckLibrary(const WindowsCheckLibrary&) = delete;
  WindowsCheckLibrary& operator=(const WindowsCheckLibrary&) = delete;

  bool Load() override;
  void Free() override;
  bool CanOpenForWriting(const std::string& device_path) override;
  // Does nothing when the library is not loaded. What the callback throws comes out here, after the
  // library has ended its work.
  void Check(const std::string& root, const std::string& file_system,
             const DiskCheckOptions& options, const Callback& callback) override;

 private:
  void* library_ = nullptr;
  void* chkdsk_ = nullptr;
};

}  // namespace vornalux
