// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/pending_events.h"

#include <pthread.h>
#include <signal.h>

#include <initializer_list>
#include <utility>

namespace vornalux {
namespace {

std::atomic<PendingEvents*> signal_target = nullptr;

void OnSignal(int signal_number) {
  PendingEvents* events = signal_target.load();
  if (events == nullptr) return;
  if (signal_number != SIGINT) {
    events->fetch_or(pending::kTerminate);
  } else if (events->fetch_or(pending::kInterrupt) & pending::kInterrupt) {
    events->fetch_or(pending::kInsist);
  }
}

void Handle(int signal_number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal_number, &action, nullptr);
}

}  // namespace

StopSignals::StopSignals(PendingEvents& events) {
  signal_target = &events;
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) Handle(signal_number, OnSignal);
  // A reader that has gone, or a log that may grow no more, is no reason to end in the middle.
  for (const int signal_number : {SIGPIPE, SIGXFSZ}) Handle(signal_number, SIG_IGN);
}

StopSignals::~StopSignals() {
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ})
    Handle(signal_number, SIG_DFL);
  signal_target = nullptr;
}

Ticker::Ticker(PendingEvents& events, std::chrono::milliseconds period)
    : Ticker(period, [&events] { events.fetch_or(pending::kTick, std::memory_order_relaxed); }) {}

Ticker::Ticker(std::chrono::milliseconds period, std::function<void()> tick) {
  // Signals belong to the thread that works: a question to the user must wake up from them.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([this, period, tick = std::move(tick)] {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, period, [this] { return end_; })) tick();
  });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Ticker::~Ticker() {
  {
    const std::lock_guard lock(mutex_);
    end_ = true;
  }
  ended_.notify_one();
  thread_.join();
}

}  // namespace vornalux
