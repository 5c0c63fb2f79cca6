// SPDX-License-Identifier: GPL-2.0-or-later
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "host/terminal/command_line/options.h"
#include "host/terminal/live/pending_events.h"
#include "host/terminal/live/terminal_screen.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/output/standard_streams.h"
#include "host/terminal/session/commands.h"
#include "host/terminal/user/console.h"
#include "host/terminal/user/terminal_desktop.h"
#include "text/shell_text.h"

namespace vornalux {
namespace {

// The options, or how the program ends without them.
std::optional<ExitCode> TakeOptions(const std::vector<std::string>& arguments, Options& options,
                                    Outputs& outputs) {
  std::ostringstream out;
  std::ostringstream err;
  const std::optional<ExitCode> end = ParseOptions(arguments, options, out, err, std::cin);
  if (!end) return std::nullopt;
  if (!IsNamedBy(STDERR_FILENO, arguments)) WriteAll(STDERR_FILENO, err.str());
  if (IsNamedBy(STDOUT_FILENO, arguments)) return ExitCode::Usage;
  return outputs.standard.Write(out.str()) ? ExitCode::Failed : end;
}

// As it could be typed again.
std::string CommandLine(const std::vector<std::string>& arguments) {
  std::string line = "vornalux";
  for (const std::string& argument : arguments) line += " " + ShellQuoted(argument);
  return line;
}

ExitCode Run(const std::vector<std::string>& arguments, const Options& options, Outputs& outputs,
             Charset charset) {
  constexpr auto kTick = std::chrono::milliseconds(100);
  StandardConsole console(charset);
  // Before signals become wishes of the user: opening may have to wait for who reads.
  try {
    OpenOutputs(options, outputs);
  } catch (const OutputRefused& refused) {
    console.Print("vornalux: " + PrintableText(refused.what(), charset) + "\n");
    return ExitCode::Usage;
  }
  PendingEvents events = 0;
  const StopSignals signals(events);
  const Ticker ticker(events, kTick);
  const std::unique_ptr<TerminalScreen> screen = TerminalScreen::Find(charset);
  TerminalDesktop desktop(console, screen.get(), events, std::chrono::steady_clock::now,
                          options.quiet);
  desktop.LogTo(outputs.log);
  outputs.log.Write(CommandLine(arguments) + " (version " VORNALUX_VERSION ")");
  const ExitCode code = RunCommand(options, desktop, charset, outputs);
  outputs.log.Write("ended with exit code " + std::to_string(static_cast<int>(code)));
  const std::error_code error = outputs.log.Error();
  if (!error) return code;
  desktop.Say(outputs.log_file.Name() + " could not be written completely: " + error.message());
  return ExitCode::Failed;
}

}  // namespace
}  // namespace vornalux

int main(int argc, char** argv) {
  using namespace vornalux;
  if (!OccupyStandardStreams()) return static_cast<int>(ExitCode::Failed);
  const Charset charset = SetUpCharset();
  // So that a list that cannot be read to its end is told from one that ends.
  std::ios::sync_with_stdio(false);
  Outputs outputs;
  Options options;
  const std::vector<std::string> arguments = {argv + 1, argv + argc};
  std::optional<ExitCode> code = TakeOptions(arguments, options, outputs);
  if (!code) code = Run(arguments, options, outputs, charset);
  if (code == ExitCode::Done) outputs.standard.EndIfReaderLeft();
  return static_cast<int>(*code);
}
