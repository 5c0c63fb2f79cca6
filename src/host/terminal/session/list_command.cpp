// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/list_command.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "host/image/opening/volume_list.h"
#include "host/image/volume/refused.h"
#include "host/terminal/result/volume_table.h"

namespace vornalux {

ExitCode ListCommand(const Options& options, TerminalDesktop& desktop, Charset charset,
                     StandardOutput& output) {
  ExitCode code = ExitCode::Done;
  std::vector<ListedVolume> volumes;
  if (options.volumes.empty()) volumes = ListVolumes();
  for (const VolumeArgument& argument : options.volumes) {
    try {
      std::ranges::move(ListImage(argument.image), std::back_inserter(volumes));
    } catch (const VolumeRefused& refused) {
      desktop.Say(refused.what());
      code = ExitCode::Refused;
    }
  }
  // Who names an image wants to know what is on it.
  const bool all = options.list_all || !options.volumes.empty();
  if (volumes.empty() && code != ExitCode::Done && !options.json) return code;
  const std::error_code error =
      output.Write(options.json ? ToJson(volumes, all) : ToText(volumes, all, charset));
  const bool missing = std::ranges::any_of(
      volumes, [](const ListedVolume& volume) { return !volume.unreadable.empty(); });
  if (missing && !options.volumes.empty()) code = ExitCode::Failed;
  if (missing && ::geteuid() != 0) desktop.Say("As root it could look at more.");
  if (!error) return code;
  desktop.Say("The result could not be written to standard output: " + error.message());
  return ExitCode::Failed;
}

}  // namespace vornalux
