// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "host/terminal/live/screen.h"

namespace vornalux {

// The terminal that standard error leads to. However the program ends, by a fatal signal too, the
// terminal is given back first; suspended and continued, it is taken anew. At most one at a time.
class TerminalScreen final : public Screen {
 public:
  // Nothing when there is no terminal with a cursor, the user wants no colours (NO_COLOR), or the
  // program runs in the background.
  static std::unique_ptr<TerminalScreen> Find(Charset charset);

  ~TerminalScreen() override;
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  Look look() const override { return look_; }
  ScreenSize Size() const override;
  bool Take(bool& drawn) override;
  void Release() override;
  bool Ready() override;
  void Send(std::string_view text) override;
  std::optional<Key> ReadKey(std::chrono::milliseconds wait) override;

 private:
  TerminalScreen(int descriptor, Look look) : descriptor_(descriptor), look_(look) {}
  bool InForeground() const;
  void ReadInput(std::chrono::milliseconds wait);

  int descriptor_;  // of our own, does not wait
  Look look_;
  std::string unsent_;
  std::string input_;  // typed, not yet taken
};

}  // namespace vornalux
