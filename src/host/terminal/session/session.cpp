// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/session.h"

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

#include "host/terminal/session/shrink_advice.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

// Bytes per second; 0 for no limit. A dry run copies nothing that could be too much.
std::uint64_t MaxRate(const Options& options) {
  if (options.dry_run || !options.max_rate) return 0;
  return std::min<std::uint64_t>(*options.max_rate, std::numeric_limits<std::int64_t>::max());
}

std::unique_ptr<MountedVolume> OpenNamed(const std::string& image, const OpenOptions& options,
                                         OpenReport& report) try {
  return OpenImage(image, options, report);
} catch (const VolumeRefused& refused) {
  throw refused.Of(image);
}

}  // namespace

Session::Session(const Options& options, TerminalDesktop& desktop, Charset charset,
                 Outputs& outputs)
    : desktop_(desktop),
      dry_run_(options.dry_run),
      discard_(options.discard),
      platform_(options.seed),
      debug_log_(charset) {
  if (options.low || options.idle) platform_.StayLow();
  OpenVolumes(options);
  platform_.SetWindowsFolder(options.windows_folder ? *options.windows_folder
                                                    : platform_.FindWindowsFolder());
  program_ = std::make_unique<Program>(platform_.With(desktop_));
  desktop_.Bind(
      program_->main_window,
      {.cluster_bytes = [this] { return ClusterBytes(); },
       .terminal_in_use = [this] { return program_->flags.DebugLog && debug_log_.OnTerminal(); },
       .image = [this] { return ImageAtWork(); },
       .place = options.place,
       .writes = !OnlyLooks(options.command) && !options.dry_run,
       .max_rate = static_cast<std::int64_t>(MaxRate(options))});
  if (MaxRate(options) != 0) {
    platform_.LimitRate(
        MoveRate(MaxRate(options), [this] { return desktop_.Now(); }),
        [this](std::chrono::milliseconds time) { desktop_.Wait(time); },
        [this] { return program_->flags.StopRequested != False; });
  }
  SetUpDebugLog(options, outputs);
  program_->launcher.ExcludeTxt.text = options.exclude;
  if (options.vss_safe) program_->launcher.VSS_LIVE.Click();
  program_->main_window.UseThorough(options.thorough);
  program_->flags.MaxMove = options.max_move;
}

Session::~Session() { desktop_.Unbind(); }

void Session::OpenVolumes(const Options& options) {
  const std::optional<Job> job = options.command == Command::Job
                                     ? std::optional(ParseJob(options.job_tail).job)
                                     : std::nullopt;
  const auto moves_on = [&](char letter) {
    return !job || (job->action && DriveOfRoot(job->root) == letter);
  };
  for (const VolumeArgument& argument : options.volumes) {
    const OpenOptions open = {.writable = !OnlyLooks(options.command),
                              .dry_run = options.dry_run,
                              // A job checks the disk itself and says what it found.
                              .allow_dirty = options.command == Command::Job,
                              .drop_restore_points = options.drop_restore_points,
                              .piece = MoveRate::Piece(MaxRate(options)),
                              .refuse_solid = !options.force && moves_on(argument.letter),
                              .discard = options.discard,
                              .partition = options.partition,
                              .offset = options.offset};
    OpenReport report;
    volumes_.push_back(OpenNamed(argument.image, open, report));
    arguments_.push_back(argument);
    sources_.push_back(std::move(report.source));
    places_.push_back(report.place);
    platform_.Mount(argument.letter, *volumes_.back());
    if (report.recovered) desktop_.Say(report.recovery);
    for (const std::string& objection : report.objections) {
      desktop_.Say(argument.image + " is only looked at: a pass would refuse it: " + objection);
    }
    objections_.push_back(std::move(report.objections));
  }
}

void Session::SetUpDebugLog(const Options& options, Outputs& outputs) {
  if (outputs.debug_log.IsOpen()) {
    debug_log_.Use(outputs.debug_log);
  } else if (options.json) {
    // A job may switch the log on by itself; a JSON result keeps standard output to itself.
    debug_log_.UseStandardError();
  } else {
    debug_log_.Use(outputs.standard);
  }
  debug_log_name_ = outputs.debug_log.IsOpen() ? outputs.debug_log.Name() : "The debug log";
  if (!options.debug_log.empty()) program_->flags.DebugLog = True;
  debug_log_.Watch(program_->debug_window.DBGTXT);
}

std::optional<VolumeDescription> Session::Volume(char letter) const {
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    if (arguments_[i].letter == letter) {
      VolumeDescription volume = Describe(arguments_[i].image, letter, volumes_[i]->Facts());
      volume.objections = objections_[i];
      return volume;
    }
  }
  return std::nullopt;
}

std::vector<std::string> Session::Remarks() const {
  std::vector<std::string> all;
  for (const auto& volume : volumes_) {
    for (std::string& remark : volume->Remarks()) all.push_back(std::move(remark));
  }
  return all;
}

std::optional<std::size_t> Session::VolumeAtWork() const {
  const std::string& drive = program_->main_window.engine.volume.Target().drive;
  for (std::size_t i = 0; i < volumes_.size() && !drive.empty(); ++i) {
    if (arguments_[i].letter == DriveLetter(drive.front())) return i;
  }
  return std::nullopt;
}

std::int64_t Session::ClusterBytes() const {
  const auto volume = VolumeAtWork();
  if (!volume) return 0;
  const VolumeFacts& facts = volumes_[*volume]->Facts();
  return std::int64_t{facts.bytes_per_sector} * facts.sectors_per_cluster;
}

std::optional<ShrinkAdvice> Session::Shrink() {
  const auto volume = VolumeAtWork();
  const auto smallest = volume ? volumes_[*volume]->Smallest() : std::nullopt;
  if (!smallest) return std::nullopt;
  const bool ntfs = volumes_[*volume]->Facts().file_system == "NTFS";
  return AdviseShrink(arguments_[*volume].image, places_[*volume], *smallest, ntfs);
}

bool Session::PrepareDiscard() {
  const auto volume = discard_ ? VolumeAtWork() : std::nullopt;
  // What could not be done is told by Close().
  return !volume || volumes_[*volume]->DropRestorePoints() == error::kSuccess;
}

std::optional<DiscardResult> Session::Discard() {
  const auto volume = discard_ ? VolumeAtWork() : std::nullopt;
  if (!volume) return std::nullopt;
  std::string why;
  try {
    VolumeFacts facts;
    return DiscardFree(
        *sources_[*volume], dry_run_, [this] { return desktop_.StopWanted(); }, facts);
  } catch (const std::exception& refused) {
    why = refused.what();
  }
  desktop_.Say("The free space was not given back: " + why);
  return std::nullopt;
}

std::string Session::ImageAtWork() const {
  const auto volume = VolumeAtWork();
  return volume ? arguments_[*volume].image : "";
}

bool Session::Close() {
  bool good = true;
  for (std::size_t i = 0; i < volumes_.size(); ++i) {
    const ErrorCode code = volumes_[i]->Close();
    for (const std::string& remark : volumes_[i]->Remarks()) {
      desktop_.Say(arguments_[i].image + ": " + remark);
    }
    if (const ErrorCode fault = volumes_[i]->WriteFault()) {
      good = false;
      desktop_.Say(arguments_[i].image + ": files stayed where they were, because their places " +
                   "could not be written: " + platform_.ErrorText(fault));
    }
    if (code == error::kSuccess) continue;
    good = false;
    if (!volumes_[i]->CouldBegin()) {
      desktop_.Say(arguments_[i].image + ": nothing could be moved: its journal failed: " +
                   platform_.ErrorText(code) + "\nNothing was touched.");
      continue;
    }
    desktop_.Say(
        arguments_[i].image +
        ": the last changes could not be finished: " + platform_.ErrorText(code) + "\n" +
        (dry_run_
             ? "Nothing is lost: this was a dry run."
             : "Nothing is lost: the journal is left in place. Run the program again to finish."));
  }
  if (const std::error_code error = debug_log_.Finish()) {
    good = false;
    desktop_.Say(debug_log_name_ + " could not be written completely: " + error.message());
  }
  // Last: giving the terminal back waits for one that is halted.
  desktop_.Unbind();
  return good;
}

}  // namespace vornalux
