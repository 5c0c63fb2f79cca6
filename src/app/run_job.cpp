// SPDX-License-Identifier: GPL-2.0-or-later
// A job, carried out through the windows.
#include "app/exit_windows.h"
#include "app/job.h"
#include "app/launcher.h"
#include "ui/defrag_window.h"
#include "volume/extent_reader.h"

namespace vornalux {
namespace {

constexpr const char* kNoFileSystem = "FS_Error";

void Say(const JobParts& parts, const std::string& text) {
  parts.platform.desktop.ShowBox(text, kProgramTitle, BoxButtons::Ok, BoxIcon::None);
}

bool FolderExists(Files& files, const std::string& path) {
  return files.FindFirst(LongPath(path + "\\*")) != nullptr;
}

JobOutcome RunAction(const Job& job, const JobParts& parts) {
  DefragWindow& window = parts.main_window;
  if (job.action) {
    if (!window.engine.volume.IsOpen()) {
      window.TellCannotOpen();
      return JobOutcome::Failed;
    }
    if (!job.run_minimized) parts.launcher.ShowMainWindow();
  }
  if (job.run_minimized) parts.launcher.minimize_to_tray();
  if (!job.action) return JobOutcome::Done;
  window.OpenMenu();
  window.UseThorough(RunsThorough(job));
  if (window.AcceptSolidState()) {
    parts.trace.Line("CDM_line drive " + window.engine.volume.Target().Drive() +
                     " is a solid-state disk");
  }
  window.PassItem(*job.action).Click();
  if (parts.flags.StopRequested) return JobOutcome::Stopped;
  return window.last_run_failed ? JobOutcome::Failed : JobOutcome::Done;
}

void AfterRun(const JobParts& parts) {
  const DefragWindow& window = parts.main_window;
  if (parts.settings.shutdownWhenDone) {
    clsExitWindows(parts.platform.system).ExitWindows(clsExitWindows::kPowerOff);
  }
  if (parts.flags.StopRequested || window.Ended() || !parts.settings.closeWhenDone) return;
  parts.launcher.cleanup_systray();
  if (parts.launcher.end_program) parts.launcher.end_program();
}

}  // namespace

JobOutcome RunJob(const Job& job, const JobParts& parts) {
  DefragWindow& window = parts.main_window;
  ChosenVolume& volume = window.engine.volume;
  if (window.Ended()) return JobOutcome::Stopped;
  const std::string root = job.root.empty() ? volume.Target().drive : job.root;
  if (root.size() < 2 || root == "\\") {
    Say(parts, "No drive specified.");
    return JobOutcome::NoDrive;
  }
  if (job.action && !parts.launcher.TakeVolume(root)) return JobOutcome::InUse;
  parts.trace.Line("CDM_line arguments: " + job.line);
  if (const std::string why = WhyNotThorough(job); !why.empty())
    parts.trace.Line("CDM_line " + why);
  volume.Choose(root, job.directory, kNoFileSystem);
  parts.launcher.runchkdsk(volume.Target().Drive());
  if (window.Ended()) return JobOutcome::Stopped;
  if (parts.flags.VolumeDirty) return JobOutcome::Dirty;
  // The check may have taken its time.
  volume.Choose(root, job.directory, kNoFileSystem);
  const std::string folder = volume.Target().Drive() + "\\" + job.directory;
  if (volume.IsOpen() && !job.directory.empty() && !FolderExists(parts.platform.files, folder)) {
    Say(parts, "There is no folder " + folder + ".");
    return JobOutcome::NoFolder;
  }
  const JobOutcome outcome = RunAction(job, parts);
  if (!parts.flags.StopRequested && !window.Ended()) AfterRun(parts);
  return outcome;
}

}  // namespace vornalux
