// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/trim_command.h"

#include <optional>
#include <string>

#include "host/image/volume/refused.h"
#include "host/terminal/session/outcome.h"

namespace vornalux {
namespace {

TrimReport Trim(const std::string& image, const Options& options, TerminalDesktop& desktop) try {
  return TrimImage(image,
                   {.writable = true,
                    .dry_run = options.dry_run,
                    .drop_restore_points = options.drop_restore_points,
                    .partition = options.partition,
                    .offset = options.offset},
                   [&desktop] { return desktop.StopWanted(); });
} catch (const VolumeRefused& refused) {
  throw refused.Of(image);
}

}  // namespace

ExitCode TrimCommand(const Options& options, TerminalDesktop& desktop, Charset charset,
                     Outputs& outputs) {
  const std::string& image = options.volumes.front().image;
  std::optional<SleepLock> awake = StayAwake(options);
  const TrimReport report = Trim(image, options, desktop);
  awake.reset();
  if (report.opening.recovered) desktop.Say(report.opening.recovery);
  for (const std::string& remark : report.remarks) desktop.Say(image + ": " + remark);
  const TrimResult result = {.volume = Describe(image, 'C', report.facts),
                             .discard = report.discard,
                             .dry_run = options.dry_run};
  if (result.discard.stopped) desktop.Say("Stopped.");
  Outcome outcome;
  Present(result, options, charset, outcome);
  const bool shown = ShowResult(outcome, outputs, desktop);
  return !shown || result.discard.cannot ? ExitCode::Failed : CodeOf(result.discard);
}

}  // namespace vornalux
