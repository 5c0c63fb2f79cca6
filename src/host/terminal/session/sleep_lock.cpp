// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/sleep_lock.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

namespace vornalux {
namespace {

constexpr std::uint64_t kPatience = 1000000;  // microseconds

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct FreeMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;
using Message = std::unique_ptr<sd_bus_message, FreeMessage>;

Bus OpenBus() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) return nullptr;
  Bus opened(bus);
  sd_bus_set_method_call_timeout(bus, kPatience);
  return opened;
}

// "block" is for who may; to be asked first helps others: a few seconds for a run to end in order.
int Inhibit(sd_bus* bus, const std::string& why, const char* mode) {
  sd_bus_message* raw = nullptr;
  if (sd_bus_message_new_method_call(bus, &raw, "org.freedesktop.login1", "/org/freedesktop/login1",
                                     "org.freedesktop.login1.Manager", "Inhibit") < 0) {
    return -1;
  }
  const Message call(raw);
  // A manager that does not run has nothing to keep.
  sd_bus_message_set_auto_start(raw, 0);
  if (sd_bus_message_append(raw, "ssss", "sleep:shutdown", "Vornalux", why.c_str(), mode) < 0) {
    return -1;
  }
  if (sd_bus_call(bus, call.get(), 0, nullptr, &raw) < 0) return -1;
  const Message reply(raw);
  int descriptor = -1;
  if (sd_bus_message_read(reply.get(), "h", &descriptor) < 0) return -1;
  // The reply's own goes with it. No program started meanwhile is to hold the lock.
  return ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

}  // namespace

SleepLock::SleepLock(const std::string& why) {
  const Bus bus = OpenBus();
  if (!bus) return;
  for (const char* const mode : {"block", "delay"}) {
    descriptor_ = Inhibit(bus.get(), why, mode);
    if (Held()) return;
  }
}

void SleepLock::Release() {
  if (Held()) ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace vornalux
