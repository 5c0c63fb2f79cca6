// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/saved_job/save_job.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "app/job.h"
#include "host/image/opening/image_file.h"
#include "host/mounted/mounted_platform.h"
#include "host/terminal/saved_job/desktop_entry.h"
#include "host/terminal/saved_job/desktop_folder.h"
#include "text/trimmed.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

// A reason that ends the command.
struct Refusal {
  ExitCode code;
  std::string text;
};

// The volume that the job works on is looked at, and closed again.
void CheckFolder(const VolumeArgument& argument, const Options& options,
                 const std::string& directory) {
  OpenReport report;
  const std::unique_ptr<MountedVolume> volume = OpenImage(
      argument.image,
      {.allow_dirty = true, .partition = options.partition, .offset = options.offset}, report);
  MountedPlatform platform;
  platform.Mount(argument.letter, *volume);
  const std::string folder = std::string{argument.letter, ':', '\\'} + directory;
  if (platform.FindFirst(folder + "\\*") != nullptr) return;
  throw Refusal{ExitCode::Usage, "The job was not saved: there is no folder " + folder + " on " +
                                     argument.image + "."};
}

auto VolumeOfRoot(const Options& options, const std::string& root) {
  return std::ranges::find(options.volumes, DriveOfRoot(root), &VolumeArgument::letter);
}

// Reads the job line as the job will. Nothing runs.
void CheckJobLine(const Options& options, TerminalDesktop& desktop) {
  const std::vector<std::string> objections = JobLineObjections(options);
  for (const std::string& objection : objections) desktop.Say(objection);
  if (!objections.empty()) {
    throw Refusal{ExitCode::Usage, "The job was not saved: its line cannot be carried out."};
  }
  const Job job = ParseJob(options.job_tail).job;
  if (job.root.size() < 2) throw Refusal{ExitCode::Usage, "No drive specified."};
  if (!job.directory.empty()) {
    CheckFolder(*VolumeOfRoot(options, job.root), options, job.directory);
  }
}

std::string NameOf(const Options& options) {
  const std::string name = Trimmed(*options.save_job);
  if (name.empty()) throw Refusal{ExitCode::Usage, "--save-job: a job needs a name."};
  if (name.find('/') != std::string::npos || !FitsDesktopEntry(name)) {
    throw Refusal{ExitCode::Usage, "--save-job: " + name +
                                       " is no name for a file on the desktop: a slash or a "
                                       "character that cannot be shown is in it."};
  }
  return name;
}

// Links stay as they are: one like /dev/disk/by-id/... says better than its target what is meant.
// What ".." leads to behind a link is for the system to say.
std::string AbsolutePath(const std::string& path) {
  fs::path absolute;
  for (const fs::path& part : fs::absolute(path)) {
    if (!part.empty() && part != ".") absolute /= part;
  }
  return absolute.string();
}

std::string ImagePath(const std::string& image) {
  std::error_code error;
  if (!fs::exists(image, error)) {
    const std::string why = error ? error.message() : "No such file or directory";
    throw Refusal{ExitCode::Refused, image + ": " + why};
  }
  return AbsolutePath(image);
}

std::string ProgramPath() {
  const std::string path = fs::read_symlink("/proc/self/exe").string();
  // Desktops take such a word for a setting of the environment.
  if (path.find('=') != std::string::npos) {
    throw Refusal{ExitCode::Failed,
                  "No launcher can start " + path + ": there is a = in its path."};
  }
  return path;
}

// The command that does what these options ask for, wherever it is started.
std::vector<std::string> JobCommand(const Options& options) {
  std::vector<std::string> command = {ProgramPath(), "job"};
  const auto add = [&command](const char* option, const std::string& value) {
    command.push_back(option);
    command.push_back(value);
  };
  for (const VolumeArgument& volume : options.volumes) {
    add("--volume", std::string(1, volume.letter) + "=" + ImagePath(volume.image));
  }
  if (options.partition) add("--partition", std::to_string(*options.partition));
  if (options.offset) add("--offset", std::to_string(*options.offset));
  // It may begin with a dash.
  if (!options.exclude.empty()) command.push_back("--exclude=" + options.exclude);
  if (options.windows_folder) add("--windows-dir", *options.windows_folder);
  if (!options.debug_log.empty()) {
    add("--debug-log", options.debug_log == "-" ? "-" : AbsolutePath(options.debug_log));
  }
  if (!options.log.empty()) add("--log", AbsolutePath(options.log));
  if (options.seed != 0) add("--seed", std::to_string(options.seed));
  if (options.vss_safe) command.emplace_back("--vss-safe");
  if (options.drop_restore_points) command.emplace_back("--drop-restore-points");
  if (options.dry_run) command.emplace_back("--dry-run");
  if (options.discard) command.emplace_back("--discard");
  if (options.force) command.emplace_back("--force");
  if (options.max_rate) add("--max-rate", std::to_string(*options.max_rate));
  if (options.low) command.emplace_back("--low");
  if (options.idle) command.emplace_back("--idle");
  if (options.quiet) command.emplace_back("--quiet");
  if (options.json) command.emplace_back("--json");
  add("--", options.job_tail);
  for (const std::string& argument : command) {
    if (FitsDesktopEntry(argument)) continue;
    throw Refusal{ExitCode::Failed, "No launcher can hold " + argument +
                                        ": a character in it is no UTF-8 or cannot be shown."};
  }
  return command;
}

std::error_code LastError() { return {errno, std::generic_category()}; }

// As a whole or not at all: beside its place first, then put there.
void WriteLauncher(const std::string& path, const std::string& text) {
  constexpr mode_t kMayBeStarted = 0755;
  std::string draft = fs::path(path).parent_path().string() + "/.vornalux-XXXXXX";
  const int file = mkstemp(draft.data());
  if (file < 0) throw std::system_error(LastError(), draft);
  std::error_code error = WriteAll(file, text);
  if (!error && (fchmod(file, kMayBeStarted) != 0 || fsync(file) != 0)) error = LastError();
  if (close(file) != 0 && !error) error = LastError();
  if (!error && rename(draft.c_str(), path.c_str()) != 0) error = LastError();
  if (!error) return;
  unlink(draft.c_str());
  throw std::system_error(error, path);
}

std::string WriteOnDesktop(const std::string& name, const std::string& text) {
  const std::string folder = DesktopFolder();
  if (folder.empty()) {
    throw Refusal{ExitCode::Failed, "HOME names no folder: there is no desktop to save to."};
  }
  fs::create_directories(folder);
  std::string path = folder + "/" + name + ".desktop";
  WriteLauncher(path, text);
  return path;
}

}  // namespace

std::vector<std::string> JobLineObjections(const Options& options) {
  JobReading reading = ParseJob(options.job_tail);
  std::vector<std::string> all = std::move(reading.objections);
  std::ranges::move(reading.doubts, std::back_inserter(all));
  const std::string& root = reading.job.root;
  if (reading.job.context_menu) {
    all.emplace_back("Explorer verbs exist on Windows only.");
  } else if (!reading.refused && root.size() > 1 &&
             VolumeOfRoot(options, root) == options.volumes.end()) {
    all.push_back("The job is for drive " + root + ", which no --volume names.");
  }
  return all;
}

ExitCode SaveJob(const Options& options, TerminalDesktop& desktop, StandardOutput& output) {
  try {
    const std::string name = NameOf(options);
    CheckJobLine(options, desktop);
    const std::string path = WriteOnDesktop(name, DesktopEntry(name, JobCommand(options)));
    const std::error_code error = output.Write(path + "\n");
    if (!error) return ExitCode::Done;
    desktop.Say("The result could not be written to standard output: " + error.message());
    return ExitCode::Failed;
  } catch (const Refusal& refusal) {
    desktop.Say(refusal.text);
    return refusal.code;
  } catch (const std::system_error& error) {
    desktop.Say(std::string("The job was not saved: ") + error.what());
    return ExitCode::Failed;
  }
}

}  // namespace vornalux
