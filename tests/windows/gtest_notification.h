// SPDX-License-Identifier: GPL-2.0-or-later
// Included before GoogleTest, whose own class of this name needs <mutex>: the compiler's win32
// threads have none.
#pragma once

extern "C" __declspec(dllimport) void __stdcall Sleep(unsigned long milliseconds);

namespace testing::internal {

class Notification {
 public:
  Notification() = default;
  Notification(const Notification&) = delete;
  Notification& operator=(const Notification&) = delete;
  void Notify() { __atomic_store_n(&set_, 1, __ATOMIC_RELEASE); }
  void WaitForNotification() {
    while (__atomic_load_n(&set_, __ATOMIC_ACQUIRE) == 0) Sleep(1);
  }

 private:
  int set_ = 0;
};

}  // namespace testing::internal
