// SPDX-License-Identifier: GPL-2.0-or-later
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/terminal/commands.h"
#include "host/terminal/console.h"
#include "host/terminal/options.h"
#include "host/terminal/pending_events.h"
#include "host/terminal/terminal_desktop.h"
#include "host/terminal/terminal_screen.h"

int main(int argc, char** argv) {
  using namespace vornalux;
  constexpr auto kTick = std::chrono::milliseconds(100);

  const Charset charset = SetUpCharset();
  Options options;
  if (const std::optional<ExitCode> end =
          ParseOptions({argv + 1, argv + argc}, options, std::cout, std::cerr)) {
    return static_cast<int>(*end);
  }
  PendingEvents events = 0;
  const StopSignals signals(events);
  const Ticker ticker(events, kTick);
  StandardConsole console(charset);
  const std::unique_ptr<TerminalScreen> screen = TerminalScreen::Find(charset);
  TerminalDesktop desktop(console, screen.get(), events, std::chrono::steady_clock::now,
                          options.quiet);
  return static_cast<int>(RunCommand(options, desktop, charset));
}
