// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/terminal_screen.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace vornalux {
namespace {

// Another screen with the cursor hidden, and back. The first byte ends a sequence that a fatal
// signal may have cut in two.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l\x1b[H\x1b[2J";
constexpr std::string_view kLeave = "\x18\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr auto kEscapeWait = std::chrono::milliseconds(25);

constexpr std::array kFatal = {SIGSEGV, SIGBUS,  SIGILL,  SIGFPE,  SIGABRT, SIGQUIT, SIGTRAP,
                               SIGSYS,  SIGXCPU, SIGXFSZ, SIGALRM, SIGUSR1, SIGUSR2};

// All that a signal handler needs: plain data that is complete before the handlers are set.
struct Given {
  int input = -1;  // the keyboard whose settings were changed; -1 for none
  termios settings = {};
  std::array<struct sigaction, kFatal.size()> actions = {};
  struct sigaction stop_action = {};
};
Given given;
std::atomic<bool> taken = false;
bool handlers_set = false;
std::array<char, 64 * 1024> handler_stack;

// Safe in a signal handler.
void GiveBack() {
  if (!taken.exchange(false)) return;
  const int before = errno;
  if (given.input >= 0) tcsetattr(given.input, TCSANOW, &given.settings);
  // Nothing can be done about a terminal that is gone.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kLeave.data(), kLeave.size());
  errno = before;
}

void OnFatal(int number, siginfo_t* info, void*) {
  GiveBack();
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    if (kFatal[i] == number) sigaction(number, &given.actions[i], nullptr);
  }
  // A fault happens again by itself on return, now with whoever handled it before.
  if (info->si_code <= 0 || number == SIGQUIT) raise(number);
}

// Ctrl-Z: the shell gets its terminal back. The program takes it anew when it next draws.
void OnSuspend(int) {
  const int before = errno;
  GiveBack();
  struct sigaction ours;
  sigaction(SIGTSTP, &given.stop_action, &ours);
  raise(SIGTSTP);
  sigset_t suspend;
  sigemptyset(&suspend);
  sigaddset(&suspend, SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &suspend, nullptr);  // stops here
  sigprocmask(SIG_BLOCK, &suspend, nullptr);
  sigaction(SIGTSTP, &ours, nullptr);
  errno = before;
}

void SetHandlers() {
  if (std::exchange(handlers_set, true)) return;
  stack_t stack = {};
  stack.ss_sp = handler_stack.data();
  stack.ss_size = handler_stack.size();
  stack_t present = {};
  // A sanitizer may have brought one of its own.
  if (sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE)) {
    sigaltstack(&stack, nullptr);
  }
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  action.sa_sigaction = OnFatal;
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    sigaction(kFatal[i], &action, &given.actions[i]);
  }
  action.sa_flags = SA_RESTART;
  action.sa_handler = OnSuspend;
  sigaction(SIGTSTP, &action, &given.stop_action);
}

void ResetHandlers() {
  if (!std::exchange(handlers_set, false)) return;
  for (std::size_t i = 0; i < kFatal.size(); ++i) {
    sigaction(kFatal[i], &given.actions[i], nullptr);
  }
  sigaction(SIGTSTP, &given.stop_action, nullptr);
}

bool Waiting(int descriptor, short events, std::chrono::milliseconds wait) {
  pollfd poll_descriptor = {descriptor, events, 0};
  return poll(&poll_descriptor, 1, static_cast<int>(wait.count())) > 0;
}

// Escape sequences of keys, behind the escape character.
struct KeySequence {
  std::string_view text;
  Key key;
};
constexpr std::array kSequences = {
    KeySequence{"[A", key::kUp},      KeySequence{"OA", key::kUp},
    KeySequence{"[B", key::kDown},    KeySequence{"OB", key::kDown},
    KeySequence{"[5~", key::kPageUp}, KeySequence{"[6~", key::kPageDown},
    KeySequence{"[H", key::kHome},    KeySequence{"[1~", key::kHome},
    KeySequence{"OH", key::kHome},    KeySequence{"[F", key::kEnd},
    KeySequence{"[4~", key::kEnd},    KeySequence{"OF", key::kEnd}};

// How long the control sequence at the start of the text is; all of it when it does not end.
std::size_t SequenceLength(std::string_view text) {
  if (text.front() == 'O') return std::min<std::size_t>(text.size(), 2);
  if (text.front() != '[') return 1;
  const auto final_byte = [](char c) { return c >= 0x40 && c <= 0x7E; };
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (final_byte(text[i])) return i + 1;
  }
  return text.size();
}

}  // namespace

std::unique_ptr<TerminalScreen> TerminalScreen::Find(Charset charset) {
  const char* no_colour = std::getenv("NO_COLOR");
  if (no_colour != nullptr && *no_colour != '\0') return nullptr;
  const auto depth = DepthOf(std::getenv("TERM"), std::getenv("COLORTERM"));
  const char* name = depth ? ttyname(STDERR_FILENO) : nullptr;
  if (name == nullptr) return nullptr;
  // Not to wait is a property of the open file, which standard error shares with the shell.
  const int descriptor = open(name, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  std::unique_ptr<TerminalScreen> screen(new TerminalScreen(descriptor, {charset, *depth}));
  return screen->InForeground() ? std::move(screen) : nullptr;
}

TerminalScreen::~TerminalScreen() {
  Release();
  close(descriptor_);
}

bool TerminalScreen::InForeground() const { return tcgetpgrp(STDERR_FILENO) == getpgrp(); }

ScreenSize TerminalScreen::Size() const {
  winsize size = {};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {size.ws_col, size.ws_row};
}

bool TerminalScreen::Take(bool& drawn) {
  drawn = taken;
  if (taken) return true;
  if (!InForeground()) return false;
  given.input = -1;
  if (tcgetpgrp(STDIN_FILENO) == getpgrp() && tcgetattr(STDIN_FILENO, &given.settings) == 0) {
    given.input = STDIN_FILENO;
  }
  SetHandlers();
  taken = true;
  if (given.input >= 0) {
    termios settings = given.settings;
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    tcsetattr(given.input, TCSANOW, &settings);
  }
  unsent_ = kEnter;
  return true;
}

void TerminalScreen::Release() {
  GiveBack();
  ResetHandlers();
  unsent_.clear();
}

bool TerminalScreen::Ready() {
  while (!unsent_.empty()) {
    const ssize_t written = write(descriptor_, unsent_.data(), unsent_.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) return false;
    if (written < 0) unsent_.clear();  // the terminal is gone
    if (written > 0) unsent_.erase(0, static_cast<std::size_t>(written));
  }
  return true;
}

void TerminalScreen::Send(std::string_view text) {
  unsent_ += text;
  Ready();
}

void TerminalScreen::ReadInput(std::chrono::milliseconds wait) {
  if (given.input < 0 || !taken) {
    poll(nullptr, 0, static_cast<int>(wait.count()));
    return;
  }
  if (!Waiting(given.input, POLLIN, wait)) return;
  std::array<char, 256> buffer;
  const ssize_t count = read(given.input, buffer.data(), buffer.size());
  if (count > 0) input_.append(buffer.data(), static_cast<std::size_t>(count));
}

std::optional<Key> TerminalScreen::ReadKey(std::chrono::milliseconds wait) {
  if (input_.empty()) ReadInput(wait);
  if (input_.empty()) return std::nullopt;
  const char first = input_.front();
  input_.erase(0, 1);
  if (first != key::kEscape) return static_cast<unsigned char>(first);
  if (input_.empty()) ReadInput(kEscapeWait);
  if (input_.empty()) return key::kEscape;
  const std::string sequence = input_.substr(0, SequenceLength(input_));
  if (sequence.front() != '[' && sequence.front() != 'O') return key::kEscape;
  input_.erase(0, sequence.size());
  for (const KeySequence& known : kSequences) {
    if (known.text == sequence) return known.key;
  }
  return std::nullopt;
}

}  // namespace vornalux
