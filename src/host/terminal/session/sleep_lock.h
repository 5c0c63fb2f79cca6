// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// Keeps the machine from going to sleep or being switched off, as long as it lives or until
// Release(), by asking the system's login manager on the system bus. Where there is none, it does
// not answer at once, or it refuses, nothing is kept and nobody is told.
class SleepLock {
 public:
  // why: what a user reads who wants to switch off.
  explicit SleepLock(const std::string& why);
  ~SleepLock() { Release(); }
  SleepLock(const SleepLock&) = delete;
  SleepLock& operator=(const SleepLock&) = delete;

  void Release();
  bool Held() const { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;  // as long as it is open somewhere, the lock is held
};

}  // namespace vornalux
