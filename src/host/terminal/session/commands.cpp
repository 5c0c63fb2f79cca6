// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/commands.h"

#include <unistd.h>

#include <cstdint>
#include <exception>
#include <optional>
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
#include "host/terminal/session/session.h"
#include "host/terminal/session/terminal_platform.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

// How a command ended, and what it has to show once its volumes are closed.
struct Outcome {
  ExitCode code = ExitCode::Done;
  std::string output;
  std::optional<ReportContent> report;  // also what the picture of the map is drawn from
};

// Another program or a file gets names as they are; only a terminal has a character set.
Charset OutputCharset(Charset terminal) { return isatty(STDOUT_FILENO) ? terminal : Charset::Utf8; }

template <typename Result>
std::string Present(const Result& result, const Options& options, Charset charset) {
  return options.json ? ToJson(result) : ToText(result, OutputCharset(charset));
}

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

// The map with its candidates as the window shows it now.
MapColumns DrawnMap(DefragWindow& window) {
  window.RedrawMap(MapLayers::Candidates);
  return window.Picdepartvolume.columns();
}

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
  if (outputs.report.IsOpen()) good &= WriteFile(outputs.report, ToHtml(report), desktop);
  return good;
} catch (const std::exception& error) {
  desktop.Say(error.what());
  return false;
}

bool WantsPictures(const Options& options) {
  return !options.png.empty() || !options.report.empty();
}

Outcome RunAnalyze(Session& session, const Options& options, Charset charset) {
  Outcome outcome;
  outcome.code = Analyze(session.program(), options.classes);
  if (outcome.code != ExitCode::Done) return outcome;
  const Engine& engine = session.program().main_window.engine;
  AnalysisResult result = {.volume = *session.Volume(options.volumes.front().letter),
                           .figures = CollectFigures(engine),
                           .temperature = ReadTemperature(session.program()),
                           .list = {},
                           .unreadable = {}};
  if (options.list) result.list = CollectFragmentedFiles(engine);
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
  if (options.command == Command::Analyze) outcome.output = Present(result, options, charset);
  return outcome;
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
    }
  }
  result.remarks = session.Remarks();
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
  outcome.output = Present(result, options, charset);
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
    if (code == ExitCode::Done) AskForHelp(session, result.summary);
    result.remarks = session.Remarks();
  }
  result.unreadable = session.platform().Unreadable();
  return {.code = code, .output = Present(result, options, charset), .report = {}};
}

// False, and the user told, when the options name something that the volume does not have.
bool SelectVolume(Session& session, const Options& options) {
  const std::string drive = {options.volumes.front().letter, ':'};
  DefragWindow& window = session.program().main_window;
  window.engine.volume.Choose(drive + "\\", options.directory, "");
  window.OpenMenu();
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
  if (!SelectVolume(session, options)) return {.code = ExitCode::Usage, .output = {}, .report = {}};
  if (OnlyLooks(options.command)) return RunAnalyze(session, options, charset);
  return RunPass(session, options, charset);
}

// Each tells the user what went wrong.
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

ExitCode OpenRunClose(const Options& options, TerminalDesktop& desktop, Charset charset,
                      Outputs& outputs) {
  Session session(options, desktop, charset, outputs);
  Outcome outcome;
  try {
    outcome = RunOnVolumes(session, options, charset);
  } catch (const std::exception& error) {
    // What was moved so far is made durable all the same.
    desktop.Say(error.what());
    outcome.code = ExitCode::Failed;
  }
  if (!session.Close()) outcome.code = ExitCode::Failed;
  if (const auto& unreadable = session.platform().Unreadable(); !unreadable.empty()) {
    desktop.Say(ToText(unreadable, options.json));
    outcome.code = ExitCode::Failed;
  }
  if (outcome.code == ExitCode::Stopped) desktop.Say("Stopped.");
  if (!ShowResult(outcome, outputs, desktop)) return ExitCode::Failed;
  if (outcome.code != ExitCode::Done || !session.platform().PowerOffWanted()) return outcome.code;
  if (options.dry_run) {
    desktop.Say("The machine stays on: this was a dry run.");
  } else if (!ShutDownMachine()) {
    desktop.Say("The machine could not be switched off: the system's shutdown command failed.");
    return ExitCode::Failed;
  }
  return outcome.code;
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
    return OpenRunClose(options, desktop, charset, outputs);
  } catch (const VolumeRefused& refused) {
    desktop.Say(refused.what());
    return ExitCode::Refused;
  } catch (const std::exception& error) {
    desktop.Say(error.what());
    return ExitCode::Failed;
  }
}

}  // namespace vornalux
