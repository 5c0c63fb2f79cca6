// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/user/console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace vornalux {
namespace {

constexpr int kAnswerPollMilliseconds = 100;

bool Ready(int descriptor, short events, int milliseconds) {
  pollfd poll_descriptor = {descriptor, events, 0};
  return poll(&poll_descriptor, 1, milliseconds) > 0;
}

}  // namespace

// A program in the background would be halted by reading.
bool StandardConsole::CanAsk() const {
  return isatty(STDERR_FILENO) && isatty(STDIN_FILENO) && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

void StandardConsole::Print(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void StandardConsole::PrintIfReady(std::string_view text) {
  if (Ready(STDERR_FILENO, POLLOUT, 0)) Print(text);
}

Console::Reply StandardConsole::ReadLine(const PendingEvents& events, unsigned interrupting,
                                         std::string& line) {
  line.clear();
  for (;;) {
    // A signal between looking and waiting is noticed when the wait is over.
    if (events.load() & interrupting) return Reply::Interrupted;
    if (!Ready(STDIN_FILENO, POLLIN, kAnswerPollMilliseconds)) continue;
    char c = 0;
    const ssize_t count = read(STDIN_FILENO, &c, 1);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return Reply::Closed;
    if (c == '\n') return Reply::Line;
    line += c;
  }
}

void StandardConsole::Wait(std::chrono::milliseconds time) {
  poll(nullptr, 0, static_cast<int>(time.count()));
}

}  // namespace vornalux
