// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/commands.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "engine/busy_window.h"
#include "engine/thorough_help.h"
#include "host/terminal/picture/map_image.h"
#include "host/terminal/result/html_report.h"
#include "host/terminal/result/results.h"
#include "host/terminal/result/results_json.h"
#include "host/terminal/result/results_text.h"
#include "host/terminal/saved_job/save_job.h"
#include "host/terminal/session/list_command.h"
#include "host/terminal/session/map_text.h"
#include "host/terminal/session/outcome.h"
#include "host/terminal/session/pass_gains.h"
#include "host/terminal/session/same_volume.h"
#include "host/terminal/session/session.h"
#include "host/terminal/session/terminal_platform.h"
#include "host/terminal/session/trim_command.h"
#include "host/terminal/session/volume_series.h"
#include "text/quantity_text.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

// The Analyze button, or the same for the classes that Optimize works by.
ExitCode Analyze(Program& program, bool classes) {
  RunFlags& flags = program.flags;
  DefragWindow& window = program.main_window;
  if (!classes) {
    window.cmdanalysemore.Click();
  } else {
    const BusyWindow busy(window);
    flags.StopRequested = False;
    flags.OptimizeMode = True;
    window.last_run_failed = !window.engine.analysis.Analyze_This() && !flags.StopRequested;
  }
  if (flags.StopRequested) return ExitCode::Stopped;
  return window.last_run_failed ? ExitCode::Failed : ExitCode::Done;
}

// The map with its candidates as it is now, on this many places or fewer. Who watches keeps the
// width that the screen has.
MapColumns DrawnMap(DefragWindow& window, std::int64_t places = kPicturePlaces) {
  PictureBox& picture = window.Picdepartvolume;
  const std::int32_t width = picture.width();
  const std::int64_t clusters = window.engine.geometry.constants.TotalClusters;
  picture.ResizeAtNextClear(MapWidthFor(clusters, places));
  window.RedrawMap(MapLayers::Candidates);
  picture.ResizeAtNextClear(width);
  return picture.columns();
}

bool WantsPictures(const Options& options) {
  return !options.png.empty() || !options.report.empty();
}

Outcome RunAnalyze(Session& session, const Options& options, Charset charset) {
  Outcome outcome;
  const ExtensionTable extensions(session.program().main_window.engine);
  outcome.code = Analyze(session.program(), options.classes);
  if (outcome.code != ExitCode::Done) return outcome;
  const Engine& engine = session.program().main_window.engine;
  AnalysisResult result = {.volume = *session.Volume(options.volumes.front().letter),
                           .figures = CollectFigures(engine),
                           .temperature = ReadTemperature(session.program()),
                           .list = {},
                           .files = CollectNamedFiles(session.program().main_window.engine),
                           .details = {},
                           .unreadable = {}};
  if (options.files.empty()) {
    result.details.extensions = extensions.Rows();
    result.details.most_fragmented = CollectFragmentedFiles(engine);
    if (result.details.most_fragmented.size() > kMostFragmentedShown) {
      result.details.most_fragmented.resize(kMostFragmentedShown);
    }
  }
  if (options.list) result.list = CollectFragmentedFiles(engine);
  outcome.tally = {.fragmented_before = result.figures.fragmented};
  if (WantsPictures(options)) {
    DefragWindow& window = session.program().main_window;
    ReportContent& report = outcome.report.emplace();
    report.action = "Analysis";
    report.volume = result.volume;
    report.before = result.figures;
    report.fragmented = CollectFragmentedFiles(engine);
    report.map_before = DrawnMap(window);
    report.legend = CollectLegend(window);
    report.unreadable = session.platform().Unreadable();
  }
  result.unreadable = session.platform().Unreadable();
  if (!options.files.empty() && result.figures.fragmented > 0) outcome.code = ExitCode::InPieces;
  if (options.command == Command::Map && !WantsPictures(options) && !options.json) {
    DefragWindow& window = session.program().main_window;
    const MapGrid grid = OutputGrid();
    const MapColumns map = DrawnMap(window, grid.Places());
    outcome.output = MapText(result.volume, result.figures, map, CollectLegend(window), grid,
                             OutputLook(OutputCharset(charset)));
  }
  if (options.command == Command::Analyze) outcome.analysis = std::move(result);
  return outcome;
}

// The rest of an analysis, whose volume is closed by now.
void FinishAnalysis(const Options& options, TerminalDesktop& desktop, Charset charset,
                    std::chrono::steady_clock::time_point begun, Outcome& outcome) {
  if (!outcome.analysis) return;
  AnalysisResult& result = *outcome.analysis;
  constexpr std::uint64_t kSeconds = 5;
  constexpr std::uint64_t kMostSeconds = 1'000'000;
  const std::chrono::seconds time(
      std::min(options.gains.value_or(options.files.empty() ? kSeconds : 0), kMostSeconds));
  if (time.count() > 0 && result.unreadable.empty()) {
    // A volume that took longer to be looked at takes longer to be tried on.
    const bool in_time = std::chrono::steady_clock::now() - begun < time;
    std::vector<std::string> files;
    for (const NamedFile& named : result.files) files.push_back(named.file.path);
    if (in_time) {
      desktop.Tell("Working out what passes would gain, " + Counted(time.count(), "second") +
                   " at most; Ctrl-C leaves it out");
    }
    GainsTrouble trouble = WorkOutGains(
        options, files, in_time ? time : std::chrono::seconds(0),
        [&desktop] { return desktop.StopPending(); }, result.details);
    if (desktop.StopPending()) outcome.code = ExitCode::Stopped;
    // A disk that fails now is as sick as one that fails before.
    if (!trouble.unreadable.empty()) desktop.Say(ToText(trouble.unreadable, options.json));
    if (!trouble.refused.empty()) {
      desktop.Say("What passes would leave is not worked out: " + trouble.refused);
    }
    if (!trouble.unreadable.empty() || !trouble.refused.empty()) outcome.code = ExitCode::Failed;
    result.unreadable = std::move(trouble.unreadable);
  }
  if (outcome.report) outcome.report->details = result.details;
  Present(result, options, charset, outcome);
}

// What the pass itself wrote down. before: its figures, which get the gaps that it found.
template <typename Result>
void TellSummary(const Engine& engine, std::optional<AnalysisFigures>& before, Result& result) {
  result.summary = engine.record.Summary();
  if (!result.summary || !before) return;
  before->free_regions = result.summary->regions_before;
  result.after = FiguresAfter(*before, *result.summary);
}

// The pass has gone well, whatever comes of this: a volume that cannot be read now tells nothing.
void AskForHelp(Session& session, std::optional<RunSummary>& summary) {
  TerminalPlatform& platform = session.platform();
  if (!summary || !platform.Unreadable().empty()) return;
  summary->help = FindThoroughHelp(session.program().main_window.engine.context, *summary);
  if (platform.Unreadable().empty()) return;
  summary->help.reset();
  platform.ForgetUnreadable();
}

Outcome RunPass(Session& session, const Options& options, Charset charset) {
  Program& program = session.program();
  DefragWindow& window = program.main_window;
  const PassRow& pass = RowOf(options.pass);
  const bool classes = pass.needs_class_lists;
  PassResult result;
  result.dry_run = options.dry_run;
  result.volume = *session.Volume(options.volumes.front().letter);

  ReportContent report;
  Outcome outcome;
  outcome.code = Analyze(program, classes);
  if (outcome.code == ExitCode::Failed) return outcome;
  if (outcome.code == ExitCode::Done) {
    result.before = CollectFigures(window.engine);
    if (WantsPictures(options)) report.map_before = DrawnMap(window);
    window.engine.movers.statistics.Reset();
    window.PassItem(pass.pass).Click();
    result.moved = window.engine.movers.statistics;
    TellSummary(window.engine, result.before, result);
    if (window.last_run_failed) outcome.code = ExitCode::Failed;
    if (program.flags.StopRequested) outcome.code = ExitCode::Stopped;
  }
  // The classes as well, and a second opinion.
  if (outcome.code == ExitCode::Done) {
    outcome.code = Analyze(program, classes);
    if (outcome.code == ExitCode::Done) {
      result.after = CollectFigures(window.engine);
      if (result.summary) result.after->free_regions = result.summary->regions_after;
      AskForHelp(session, result.summary);
      const bool in_pieces = !options.files.empty() && result.after->fragmented > 0;
      if (in_pieces) outcome.code = ExitCode::InPieces;
    }
  }
  if (pass.pass == Pass::Compact && outcome.code == ExitCode::Done) {
    result.shrink = session.Shrink();
    report.shrink = result.shrink;
  }
  result.remarks = session.Remarks();
  if (result.before) {
    outcome.tally = {.fragmented_before = result.before->fragmented,
                     .fragmented_after = result.after.value_or(*result.before).fragmented,
                     .moves = result.moved.moves,
                     .bytes_moved = result.moved.clusters_moved * result.volume.cluster_bytes};
  }
  result.stopped = outcome.code == ExitCode::Stopped;
  result.unreadable = session.platform().Unreadable();
  if (WantsPictures(options) && result.before) {
    report.action = pass.noun;
    report.volume = result.volume;
    report.before = result.before;
    report.after = result.after;
    report.summary = result.summary;
    report.moved = result.moved;
    report.remarks = result.remarks;
    report.unreadable = result.unreadable;
    report.stopped = result.stopped;
    report.dry_run = result.dry_run;
    report.map_after = DrawnMap(window);
    report.legend = CollectLegend(window);
    outcome.report = std::move(report);
  }
  outcome.compose = Composer(std::move(result), options, charset);
  return outcome;
}

ExitCode JobExitCode(JobOutcome outcome) {
  switch (outcome) {
    case JobOutcome::None:
    case JobOutcome::InvalidArgument:
    case JobOutcome::NoDrive:
    case JobOutcome::NoFolder:
    case JobOutcome::ContextMenu:
      return ExitCode::Usage;
    case JobOutcome::InUse:
    case JobOutcome::Dirty:
      return ExitCode::Refused;
    case JobOutcome::Failed:
      return ExitCode::Failed;
    case JobOutcome::Stopped:
      return ExitCode::Stopped;
    case JobOutcome::Done:
      return ExitCode::Done;
  }
  return ExitCode::Failed;
}

Outcome RunJob(Session& session, const Options& options, Charset charset) {
  Program& program = session.program();
  const Engine& engine = program.main_window.engine;
  JobResult result;
  result.dry_run = options.dry_run;
  const std::vector<std::string> objections = JobLineObjections(options);
  for (const std::string& objection : objections) session.desktop().Say(objection);
  result.outcome = objections.empty() ? program.launcher.process_cmd_line(options.job_tail)
                                      : JobOutcome::InvalidArgument;
  result.pass = ParseJob(options.job_tail).job.action;
  if (result.outcome == JobOutcome::Done && !result.pass) {
    session.desktop().Say("The job line names no pass: nothing was moved.");
  }
  const ExitCode code = JobExitCode(result.outcome);
  const std::string& drive = engine.volume.Target().drive;
  if (code == ExitCode::Done || code == ExitCode::Stopped || code == ExitCode::Failed) {
    result.volume = session.Volume(DriveLetter(drive.front()));
    if (engine.geometry.constants.TotalClusters > 0) result.analysis = CollectFigures(engine);
    result.moved = engine.movers.statistics;
    TellSummary(engine, result.analysis, result);
    if (code == ExitCode::Done) {
      AskForHelp(session, result.summary);
      if (ParseJob(options.job_tail).job.action == Pass::Compact) result.shrink = session.Shrink();
    }
    result.remarks = session.Remarks();
  }
  result.unreadable = session.platform().Unreadable();
  Outcome outcome;
  outcome.code = code;
  outcome.compose = Composer(std::move(result), options, charset);
  return outcome;
}

// The same for the files that the options name.
bool SelectFiles(Session& session, const Options& options) {
  std::vector<std::string> files;
  std::set<std::string> known;
  bool all = true;
  for (std::string path : options.files) {
    const ErrorCode error = session.platform().SpellAsListed(path);
    if (error == error::kSuccess) {
      if (known.insert(path).second) files.push_back(std::move(path));
      continue;
    }
    all = false;
    const bool gone = error == error::kFileNotFound || error == error::kPathNotFound ||
                      error == error::kInvalidName;
    session.desktop().Say(gone ? "--file: there is no file " + path + " on " +
                                     options.volumes.front().image
                               : "--file: " + path + " cannot be found: " + ErrorText(error));
  }
  session.program().main_window.engine.volume.SetFiles(std::move(files));
  return all;
}

// False, and the user told, when the options name something that the volume does not have.
bool SelectVolume(Session& session, const Options& options) {
  const std::string drive = {options.volumes.front().letter, ':'};
  DefragWindow& window = session.program().main_window;
  window.engine.volume.Choose(drive + "\\", options.directory, "");
  window.OpenMenu();
  if (!options.files.empty()) return SelectFiles(session, options);
  if (options.directory.empty()) return true;
  if (!session.platform().FolderExists(drive + "\\" + options.directory) &&
      session.platform().Unreadable().empty()) {
    session.desktop().Say("--directory: there is no folder " + options.directory + " on " +
                          options.volumes.front().image);
    return false;
  }
  return true;
}

Outcome RunOnVolumes(Session& session, const Options& options, Charset charset) {
  if (options.command == Command::Job) return RunJob(session, options, charset);
  if (!SelectVolume(session, options)) {
    Outcome outcome;
    outcome.code = ExitCode::Usage;
    return outcome;
  }
  if (OnlyLooks(options.command)) return RunAnalyze(session, options, charset);
  return RunPass(session, options, charset);
}

// switch_off: the job wants it.
Outcome OpenRunClose(const Options& options, TerminalDesktop& desktop, Charset charset,
                     Outputs& outputs, bool& switch_off) {
  Session session(options, desktop, charset, outputs);
  std::optional<SleepLock> awake = StayAwake(options);
  Outcome outcome;
  try {
    outcome = RunOnVolumes(session, options, charset);
  } catch (const std::exception& error) {
    // What was moved so far is made durable all the same.
    desktop.Say(error.what());
    outcome.code = ExitCode::Failed;
    outcome.error = error.what();
  }
  const auto went_well = [&outcome] {
    return outcome.code == ExitCode::Done || outcome.code == ExitCode::InPieces;
  };
  const bool discard = options.discard && went_well() && session.PrepareDiscard();
  if (!session.Close()) outcome.code = ExitCode::Failed;
  if (const auto& unreadable = session.platform().Unreadable(); !unreadable.empty()) {
    desktop.Say(ToText(unreadable, options.json));
    outcome.code = ExitCode::Failed;
  }
  std::optional<DiscardResult> discarded;
  if (discard && went_well()) {
    discarded = session.Discard();
    if (const ExitCode code = CodeOf(discarded); code != ExitCode::Done) outcome.code = code;
  }
  if (outcome.compose) outcome.compose(outcome, discarded);
  if (outcome.report) outcome.report->discard = discarded;
  switch_off = outcome.code == ExitCode::Done && session.platform().PowerOffWanted();
  return outcome;
}

ExitCode SwitchOff(bool dry_run, TerminalDesktop& desktop) {
  if (dry_run) {
    desktop.Say("The machine stays on: this was a dry run.");
  } else if (!ShutDownMachine()) {
    desktop.Say("The machine could not be switched off: the system's shutdown command failed.");
    return ExitCode::Failed;
  }
  return ExitCode::Done;
}

ExitCode RunOnAll(const Options& options, TerminalDesktop& desktop, Charset charset,
                  Outputs& outputs) {
  bool switch_off = false;
  const auto run = [&](const Options& one) {
    const auto begun = std::chrono::steady_clock::now();
    const std::string when = LocalTimeText("%Y-%m-%d %H:%M:%S (UTC%z)");
    Outcome outcome = OpenRunClose(one, desktop, charset, outputs, switch_off);
    FinishAnalysis(one, desktop, charset, begun, outcome);
    if (outcome.report) {
      outcome.report->when = when;
      outcome.report->took = std::chrono::duration_cast<std::chrono::milliseconds>(
          std::chrono::steady_clock::now() - begun);
    }
    if (outcome.code == ExitCode::Stopped) desktop.Say("Stopped.");
    outputs.log.Write(outcome.log);
    return outcome;
  };
  if (options.command == Command::Job || options.volumes.size() == 1) {
    const Outcome outcome = run(options);
    if (!ShowResult(outcome, outputs, desktop)) return ExitCode::Failed;
    return switch_off ? SwitchOff(options.dry_run, desktop) : outcome.code;
  }
  std::vector<std::string> images;
  for (const VolumeArgument& volume : options.volumes) images.push_back(volume.image);
  if (const auto same = FindSameVolume(images)) {
    desktop.Say(same->first + " and " + same->second +
                " are the same volume, or one lies on the other. Nothing was touched.");
    return ExitCode::Usage;
  }
  return RunSeries(options, desktop, OutputCharset(charset), outputs, run);
}

}  // namespace

ExitCode RunCommand(const Options& options, TerminalDesktop& desktop, Charset charset,
                    Outputs& outputs) {
  if (options.low || options.idle) GiveWay(options.idle);
  try {
    if (options.command == Command::List) {
      return ListCommand(options, desktop, OutputCharset(charset), outputs.standard);
    }
    if (options.save_job) return SaveJob(options, desktop, outputs.standard);
    if (options.command == Command::Trim) return TrimCommand(options, desktop, charset, outputs);
    return RunOnAll(options, desktop, charset, outputs);
  } catch (const VolumeRefused& refused) {
    desktop.Say(refused.what());
    return ExitCode::Refused;
  } catch (const std::exception& error) {
    desktop.Say(error.what());
    return ExitCode::Failed;
  }
}

}  // namespace vornalux
