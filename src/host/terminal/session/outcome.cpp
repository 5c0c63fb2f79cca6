// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/outcome.h"

#include <unistd.h>

#include <span>
#include <system_error>
#include <vector>

#include "host/terminal/picture/map_image.h"

namespace vornalux {
namespace {

std::vector<std::uint8_t> Picture(const ReportContent& report) {
  const bool ran = !report.map_after.empty();
  return EncodePng(DrawMapWithLegend(ran ? report.map_after : report.map_before, report.legend));
}

// False, and the user told, when the file could not be written.
bool WriteFile(OutputFile& file, std::span<const char> content, TerminalDesktop& desktop) {
  const std::error_code error = file.Replace(content);
  if (!error) return true;
  desktop.Say(file.Name() + " could not be written: " + error.message());
  return false;
}

bool WritePictures(const ReportContent& report, Outputs& outputs, TerminalDesktop& desktop) try {
  bool good = true;
  if (outputs.png.IsOpen()) {
    const std::vector<std::uint8_t> png = Picture(report);
    good = WriteFile(outputs.png, {reinterpret_cast<const char*>(png.data()), png.size()}, desktop);
  }
  if (outputs.report.IsOpen()) good &= WriteFile(outputs.report, ToHtml({&report, 1}), desktop);
  return good;
} catch (const std::exception& error) {
  desktop.Say(error.what());
  return false;
}

}  // namespace

Charset OutputCharset(Charset terminal) { return isatty(STDOUT_FILENO) ? terminal : Charset::Utf8; }

bool ShowResult(const Outcome& outcome, Outputs& outputs, TerminalDesktop& desktop) {
  const bool elsewhere = outputs.png.IsStandardOutput() || outputs.report.IsStandardOutput();
  const bool good = !outcome.report || WritePictures(*outcome.report, outputs, desktop);
  const std::error_code error =
      elsewhere ? WriteAll(STDERR_FILENO, outcome.output) : outputs.standard.Write(outcome.output);
  if (!error) return good;
  desktop.Say("The result could not be written to standard " +
              std::string(elsewhere ? "error: " : "output: ") + error.message());
  return false;
}

ExitCode CodeOf(const std::optional<DiscardResult>& discard) {
  if (!discard || discard->failed) return ExitCode::Failed;
  return discard->stopped ? ExitCode::Stopped : ExitCode::Done;
}

std::optional<SleepLock> StayAwake(const Options& options) {
  if (options.dry_run || OnlyLooks(options.command)) return std::nullopt;
  return std::optional<SleepLock>(std::in_place, "Working on " + options.volumes.front().image);
}

}  // namespace vornalux
