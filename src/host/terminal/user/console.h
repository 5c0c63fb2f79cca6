// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "host/terminal/display/display_text.h"
#include "host/terminal/live/pending_events.h"

namespace vornalux {

// Lines to the user, and lines from the user.
class Console {
 public:
  enum class Reply { Line, Interrupted, Closed };

  virtual ~Console() = default;

  // Somebody is there to answer.
  virtual bool CanAsk() const = 0;
  virtual Charset Characters() const = 0;

  // Text that must be seen, and text that is dropped when the screen does not keep up.
  virtual void Print(std::string_view text) = 0;
  virtual void PrintIfReady(std::string_view text) = 0;

  // Waits for a line of input. Interrupted as soon as any of the events is set.
  virtual Reply ReadLine(const PendingEvents& events, unsigned interrupting, std::string& line) = 0;

  // Lets so much time pass; a signal may cut it short.
  virtual void Wait(std::chrono::milliseconds time) = 0;
};

// Standard error and standard input.
class StandardConsole final : public Console {
 public:
  explicit StandardConsole(Charset charset) : charset_(charset) {}

  bool CanAsk() const override;
  Charset Characters() const override { return charset_; }
  void Print(std::string_view text) override;
  void PrintIfReady(std::string_view text) override;
  Reply ReadLine(const PendingEvents& events, unsigned interrupting, std::string& line) override;
  void Wait(std::chrono::milliseconds time) override;

 private:
  Charset charset_;
};

}  // namespace vornalux
