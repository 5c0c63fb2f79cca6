// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/output/outputs.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "host/image/opening/image_use.h"
#include "host/image/opening/state_folder.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

constexpr const char* kJournalName = ".vornalux-journal";

std::optional<struct stat> StatusOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

bool IsJournalName(const fs::path& path) {
  return path.filename().string().find(kJournalName) != std::string::npos;
}

// What no output may be: the volumes of a command, and any journal.
class Protected {
 public:
  explicit Protected(const std::vector<VolumeArgument>& volumes) {
    for (const VolumeArgument& volume : volumes) {
      std::error_code error;
      const auto status = StatusOf(volume.image);
      if (!status) continue;
      images_.push_back({*status, volume.image});
      folders_.push_back(S_ISBLK(status->st_mode)
                             ? fs::path(StateFolder())
                             : fs::canonical(volume.image, error).parent_path());
    }
  }

  // Why what has this status, and perhaps this path, must not be written to.
  std::optional<std::string> Objection(const struct stat& status, const std::string& path) const {
    if (S_ISBLK(status.st_mode)) return "is a block device: what it holds would be lost.";
    if (!S_ISREG(status.st_mode)) return std::nullopt;
    for (const auto& [image, name] : images_) {
      if (SameFile(image, status)) return "is the volume " + name + " itself.";
    }
    std::error_code error;
    const bool named = IsJournalName(path) || IsJournalName(fs::canonical(path, error));
    if (named || IsKnownJournal(status)) return "is a volume's journal.";
    return std::nullopt;
  }

  // The same for a stream that is open already, which may also lie behind a volume's device.
  std::optional<std::string> ObjectionToOpen(int stream) const {
    struct stat status {};
    if (::fstat(stream, &status) != 0) return std::nullopt;
    if (auto why = Objection(status, "/proc/self/fd/" + std::to_string(stream))) return why;
    const auto use = S_ISREG(status.st_mode) ? FindUse(stream) : std::nullopt;
    return use ? std::optional(use->what + ".") : std::nullopt;
  }

 private:
  struct Image {
    struct stat status;
    std::string name;
  };

  // By whatever name: links, mounts of a single file, short names.
  bool IsKnownJournal(const struct stat& status) const {
    for (const fs::path& folder : folders_) {
      std::error_code error;
      for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
           entry.increment(error)) {
        if (!IsJournalName(entry->path())) continue;
        const auto journal = StatusOf(entry->path());
        if (journal && SameFile(*journal, status)) return true;
      }
    }
    return false;
  }

  std::vector<Image> images_;
  std::vector<fs::path> folders_;  // where journals lie
};

// Another place for what goes to the stream, which must not be written to any more.
void Silence(int descriptor) {
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0 || ::dup2(nowhere, descriptor) < 0) ::_exit(static_cast<int>(ExitCode::Usage));
  ::close(nowhere);
}

void CheckStandardStreams(const Protected& forbidden) {
  std::string refusal;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const auto why = forbidden.ObjectionToOpen(stream);
    if (!why) continue;
    refusal = (stream == STDOUT_FILENO ? "Standard output " : "Standard error ") + *why;
    Silence(stream);
  }
  if (!refusal.empty()) throw OutputRefused(refusal);
}

// Two that write to one file overwrite each other.
void CheckAgainst(const OutputFile& file, const struct stat& other, const std::string& name) {
  if (S_ISREG(file.Status().st_mode) && SameFile(file.Status(), other)) {
    file.Refuse("is the same file as " + name + ".");
  }
}

void CheckApart(const Options& options, const std::vector<const OutputFile*>& files) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    for (std::size_t k = 0; k < i; ++k) {
      CheckAgainst(*files[i], files[k]->Status(), files[k]->Name());
    }
    struct stat standard {};
    // The map goes nowhere but into its picture, for which /dev/stdout is a name like any other.
    const bool map = options.command == Command::Map || files[i]->IsStandardOutput();
    if (!map && ::fstat(STDOUT_FILENO, &standard) == 0) {
      CheckAgainst(*files[i], standard, "standard output");
    }
    if (::fstat(STDERR_FILENO, &standard) == 0) {
      CheckAgainst(*files[i], standard, "standard error");
    }
  }
}

}  // namespace

StandardOutput::StandardOutput() {
  struct sigaction action {};
  leaving_is_an_error_ =
      ::sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

std::error_code StandardOutput::Write(std::string_view text) {
  if (reader_left_) return {};
  const std::error_code error = WriteAll(STDOUT_FILENO, text);
  reader_left_ = error == std::errc::broken_pipe && !leaving_is_an_error_;
  return reader_left_ ? std::error_code() : error;
}

void StandardOutput::EndIfReaderLeft() const {
  if (!reader_left_) return;
  ::signal(SIGPIPE, SIG_DFL);
  ::raise(SIGPIPE);
}

void OpenOutputs(const Options& options, Outputs& outputs) {
  const Protected forbidden(options.volumes);
  CheckStandardStreams(forbidden);
  // The launcher's job opens its log itself.
  if (options.save_job) return;
  struct Wanted {
    const char* option;
    const std::string& path;
    OutputFile& file;
  };
  const Wanted wanted[] = {
      {"--debug-log", options.debug_log == "-" ? std::string() : options.debug_log,
       outputs.debug_log},
      {"--log", options.log, outputs.log_file},
      {"--png", options.png, outputs.png},
      {"--report", options.report, outputs.report},
  };
  std::vector<const OutputFile*> files;
  for (const Wanted& each : wanted) {
    if (each.path.empty()) continue;
    if (each.path == "-") {
      each.file.UseStandardOutput(each.option);
      files.push_back(&each.file);
      continue;
    }
    if (const auto status = StatusOf(each.path)) {
      if (const auto why = forbidden.Objection(*status, each.path)) {
        throw OutputRefused(std::string(each.option) + " " + each.path + " " + *why);
      }
    } else if (IsJournalName(each.path)) {
      throw OutputRefused(std::string(each.option) + " " + each.path + " is a journal's name.");
    }
    if (&each.file == &outputs.log_file) {
      each.file.OpenToAppend(each.option, each.path);
    } else {
      each.file.Open(each.option, each.path);
    }
    // It may have become another file since it was looked at.
    if (const auto why = forbidden.Objection(each.file.Status(), each.path)) {
      each.file.Refuse(*why);
    }
    files.push_back(&each.file);
  }
  if (outputs.png.IsOpen() && ::isatty(outputs.png.Descriptor()) != 0) {
    outputs.png.Refuse("is a terminal: send the picture to a file or to a program.");
  }
  CheckApart(options, files);
  for (const OutputFile* file : files) file->Lock();
  if (outputs.log_file.IsOpen()) outputs.log.Use(outputs.log_file);
}

bool IsNamedBy(int standard_stream, const std::vector<std::string>& arguments) {
  std::vector<VolumeArgument> named;
  for (const std::string& argument : arguments) {
    named.push_back({.letter = 0, .image = argument});
    for (std::size_t at = 0; (at = argument.find('=', at)) != std::string::npos;) {
      named.push_back({.letter = 0, .image = argument.substr(++at)});
    }
  }
  return Protected(named).ObjectionToOpen(standard_stream).has_value();
}

}  // namespace vornalux
