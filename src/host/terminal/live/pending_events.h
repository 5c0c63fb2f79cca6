// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace vornalux {

// What has happened outside since the program last looked, as bits. Set by signal handlers and the
// ticker, taken by the desktop; a run looks at it often, so that looking is one relaxed load.
using PendingEvents = std::atomic<unsigned>;
static_assert(PendingEvents::is_always_lock_free, "signal handlers set it");

namespace pending {
inline constexpr unsigned kTick = 1;       // time to redraw and to look at timers
inline constexpr unsigned kInterrupt = 2;  // Ctrl-C
inline constexpr unsigned kInsist = 4;     // Ctrl-C again before the first was heard
inline constexpr unsigned kTerminate = 8;  // asked to end by the system: no questions
}  // namespace pending

// While it lives, SIGINT, SIGTERM and SIGHUP become events and a closed pipe is an ordinary write
// error. At most one at a time.
class StopSignals {
 public:
  explicit StopSignals(PendingEvents& events);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
};

// Sets kTick, or does something else, once every period, in a thread that no signal comes to.
class Ticker {
 public:
  Ticker(PendingEvents& events, std::chrono::milliseconds period);
  Ticker(std::chrono::milliseconds period, std::function<void()> tick);
  ~Ticker();
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool end_ = false;
  std::thread thread_;
};

}  // namespace vornalux
