// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <istream>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string_view>

#include "app/job_tail.h"
#include "host/terminal/command_line/file_list.h"
#include "host/terminal/command_line/grammar.h"
#include "host/terminal/command_line/mistakes.h"
#include "host/terminal/command_line/option_values.h"
#include "text/ascii_case.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

constexpr const char* kFooter = R"(
IMAGE is a volume image, a block device, or a disk image with a partition. NTFS and FAT.
The volume must not be mounted. One that is marked dirty, hibernated or has restore points is only
looked at.
FILE is opened before the run, written after it, and must not be a volume or a device of blocks.
Several volumes have their turn one after the other; the exit code is the worst of theirs.

Exit codes:
  0  done
  1  failed; what failed is told
  2  bad command line or job line; nothing was touched
  3  volume refused; nothing was touched
  4  stopped by the user; the volume is in order
  5  done, but not all files given by --file are in one piece)";

constexpr const char* kJobFooterBegin = R"(
What follows "--" is the job line: one argument as it stands, several joined by blanks.
  /drv C:        the volume            /dir "C:\dir"  this folder and below
)";
constexpr const char* kJobFooterEnd = R"(
  /low /normal /high                   priority
  /dbg /min /close /down /vssafe       as in a shortcut; /vssafe keeps moves aligned, but
                                       outside Windows no restore point survives a move
Examples:
  vornalux job --volume C=disk.img -- /drv C: /d /low
  vornalux job --volume C=disk.img --save-job "Nightly defrag" -- /drv C: /d /low)";

// The line of the passes: their switches, then their names. Below it those with a thorough form.
std::string PassSwitches() {
  std::string letters;
  std::string names;
  std::string thorough;
  for (const PassRow& row : kPasses) {
    const auto add = [&row](std::string& to) {
      to += (to.empty() ? "" : ", ") + std::string(row.command);
    };
    letters += std::string(letters.empty() ? "/" : " /") + row.letter;
    add(names);
    if (row.thorough != nullptr) add(thorough);
  }
  constexpr std::size_t kColumn = 15;
  letters.resize(std::max(letters.size() + 1, kColumn), ' ');
  return "  " + letters + names + "\n  /t             plan the whole volume first: " + thorough;
}

// What CLI11 fills before it is looked at more closely.
struct RawOptions {
  std::vector<std::string> images;
  std::vector<std::string> list_images;
  std::string drive = "C";
  std::vector<std::string> volumes;
  std::vector<std::string> files;
  std::string windows_folder;
  std::string save_job;
};

bool ParseDrive(const std::string& text, char& letter) {
  const bool colon = text.size() == 2 && text[1] == ':';
  letter = text.size() == 1 || colon ? DriveLetter(text[0]) : '\0';
  return letter != '\0';
}

// "Users\bob", "\Users/bob\" or "C:\Users\bob" as a folder below the root of the drive.
std::string ParseDirectory(std::string text, char letter) {
  std::replace(text.begin(), text.end(), '/', '\\');
  if (text.size() >= 2 && text[1] == ':') {
    if (DriveLetter(text[0]) != letter) {
      throw CLI::ValidationError("--directory",
                                 text + " is not on drive " + std::string(1, letter) + ":");
    }
    text.erase(0, 2);
  }
  return NormalFolder(text);
}

const CLI::Validator kSize(
    [](std::string& text) {
      const std::optional<std::uint64_t> size = ParseSize(text);
      if (!size) return text + " is no size such as 65536, 64K or 1M";
      text = std::to_string(*size);
      return std::string();
    },
    "");

const CLI::Validator kRate(
    [](std::string& text) {
      const std::optional<std::uint64_t> size = ParseSize(text);
      if (!size || *size == 0) return text + " is no rate such as 512K or 20M, in bytes per second";
      text = std::to_string(*size);
      return std::string();
    },
    "");

const CLI::Validator kNumber(
    [](std::string& text) {
      const std::optional<std::uint64_t> number = ParseDigits(text);
      if (!number) return text + " is no number";
      text = std::to_string(*number);
      return std::string();
    },
    "");

const CLI::Validator kPartition(
    [](std::string& text) {
      const std::uint64_t number = ParseDigits(text).value_or(0);
      if (number == 0 || number > INT32_MAX) return text + " is no partition's number";
      text = std::to_string(number);
      return std::string();
    },
    "");

const CLI::Validator kExtensions(
    [](std::string& text) {
      try {
        text = ParseExtensions(text);
        return std::string();
      } catch (const std::invalid_argument& error) {
        return std::string(error.what());
      }
    },
    "");

// An option that was left without its value would take the next one for it, and that one's meaning
// would be lost: the volume is written to although "--report --dry-run" says not to.
std::string EmptyName(const std::string& text) { return text.empty() ? "needs a file" : ""; }

const CLI::Validator kFileName(
    [](std::string& text) {
      if (text.empty()) return EmptyName(text);
      return text.starts_with("--") ? text + " is an option; a file of the name is ./" + text
                                    : std::string();
    },
    "");

void AddPlaceOptions(CLI::App& command, Options& options) {
  CLI::Option* partition =
      command.add_option("--partition", options.partition, "Partition of a disk image, from 1")
          ->type_name("N")
          ->transform(kPartition);
  command.add_option("--offset", options.offset, "Where the volume starts, in bytes (1M is 1 MiB)")
      ->type_name("BYTES")
      ->transform(kSize)
      ->excludes(partition);
}

void AddPriorityOptions(CLI::App& command, Options& options) {
  CLI::Option* low = command.add_flag("--low", options.low, "Let other programs go first");
  command.add_flag("--idle", options.idle, "Use only what others leave of processor and disk")
      ->excludes(low);
}

void AddOutputOptions(CLI::App& command, Options& options) {
  command.add_flag("--quiet", options.quiet, "No progress");
  command.add_flag("--json", options.json,
                   "Print the result as one JSON object; an array of several volumes");
}

void AddCommonOptions(CLI::App& command, Options& options, RawOptions& raw) {
  AddPlaceOptions(command, options);
  command
      .add_option("--exclude", options.exclude,
                  "Extensions that Defrag leaves alone: '*.iso; *.vhd'")
      ->type_name("LIST")
      ->transform(kExtensions);
  command
      .add_option("--windows-dir", raw.windows_folder,
                  "The Windows folder (default: C:\\Windows where there is one; '' for none)")
      ->type_name("DIR");
  command.add_flag(
      "--vss-safe", options.vss_safe,
      "Keep moves aligned, as on Windows; outside it no restore point survives a move");
  command
      .add_option("--debug-log", options.debug_log, "Write the debug log to FILE, or - for here")
      ->type_name("FILE")
      ->check(kFileName);
  command.add_option("--log", options.log, "Append what happens to FILE, with the time")
      ->type_name("FILE")
      ->check(kFileName)
      ->check([](const std::string& text) {
        return text == "-" ? std::string("goes into a file") : std::string();
      });
  command.add_option("--seed", options.seed, "Seed of random choices")
      ->type_name("N")
      ->transform(kNumber);
  AddPriorityOptions(command, options);
  AddOutputOptions(command, options);
}

void AddDropAndDryRun(CLI::App& command, Options& options) {
  command.add_flag("--drop-restore-points", options.drop_restore_points,
                   "Work on a volume with restore points, which are lost then");
  command.add_flag("--dry-run", options.dry_run,
                   "Find out what would happen; write nothing to the volume");
}

void AddWorkOptions(CLI::App& command, Options& options) {
  AddDropAndDryRun(command, options);
  command.add_flag("--discard", options.discard,
                   "Give free space back afterwards, to the image's file system or the disk");
  command.add_option("--max-rate", options.max_rate, "Move no more than this in a second (20M)")
      ->type_name("BYTES")
      ->transform(kRate);
  command.add_flag("--force", options.force, "Work on a solid-state disk, too");
}

void AddPictureOptions(CLI::App& command, Options& options) {
  command.add_option("--png", options.png, "Write the cluster map as a PNG image; - for here")
      ->type_name("FILE")
      ->check(kFileName);
  command.add_option("--report", options.report, "Write a report as one web page; - for here")
      ->type_name("FILE")
      ->check(kFileName);
}

void AddFileOption(CLI::App& command, RawOptions& raw) {
  CLI::Option* file =
      command
          .add_option("--file", raw.files,
                      "Only this file, as --list prints it; may be repeated; - reads a list")
          ->type_name("PATH")
          ->allow_extra_args(false)
          ->check(kFileName);
  for (const char* other : {"--directory", "--exclude"}) file->excludes(command.get_option(other));
}

void AddVolumeOptions(CLI::App& command, Options& options, RawOptions& raw) {
  command.add_option("IMAGE", raw.images, "What to work on; several one after the other")
      ->required()
      ->check(EmptyName);
  command.add_option("--drive", raw.drive, "The letter that the volume gets")
      ->type_name("LETTER")
      ->capture_default_str();
  command.add_option("--directory", options.directory, "Only this folder and below")
      ->type_name("DIR");
  AddPictureOptions(command, options);
  AddCommonOptions(command, options, raw);
}

// What means one volume only.
void CheckSeries(const RawOptions& raw, const Options& options) {
  if (options.volumes.size() < 2) return;
  const auto only_one = [](bool given, const char* option, const char* why) {
    if (given) throw CLI::ValidationError(option, why);
  };
  only_one(options.partition || options.offset, "--partition, --offset",
           "only with a single image");
  only_one(!raw.files.empty(), "--file", "only with a single image, which the files are on");
  only_one(!options.png.empty(), "--png", "one picture shows one image; --report shows all");
}

void TakeVolumes(const RawOptions& raw, Options& options) {
  if (options.command == Command::List) {
    for (const std::string& image : raw.list_images) options.volumes.push_back({.image = image});
    return;
  }
  if (options.command != Command::Job) {
    char letter = 0;
    if (!ParseDrive(raw.drive, letter)) {
      throw CLI::ValidationError("--drive", raw.drive + " is no drive letter");
    }
    options.directory = ParseDirectory(options.directory, letter);
    for (const std::string& image : raw.images) options.volumes.push_back({letter, image});
    CheckSeries(raw, options);
    return;
  }
  std::set<char> letters;
  for (const std::string& text : raw.volumes) {
    VolumeArgument volume;
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals + 1 == text.size() ||
        !ParseDrive(text.substr(0, equals), volume.letter)) {
      throw CLI::ValidationError("--volume", text + " is not of the form C=IMAGE");
    }
    if (!letters.insert(volume.letter).second) {
      throw CLI::ValidationError("--volume",
                                 std::string(1, volume.letter) + ": is given more than once");
    }
    volume.image = text.substr(equals + 1);
    options.volumes.push_back(std::move(volume));
  }
  if (options.volumes.size() > 1 && (options.partition || options.offset)) {
    throw CLI::ValidationError("--partition, --offset", "only with a single --volume");
  }
}

void CheckTogether(const Options& options) {
  std::string first;
  const auto wants_standard_output = [&first](bool wanted, const std::string& option) {
    if (!wanted) return;
    if (!first.empty()) {
      throw CLI::ValidationError(first + ", " + option, "both want standard output");
    }
    first = option;
  };
  wants_standard_output(options.json, "--json");
  wants_standard_output(options.debug_log == "-", "--debug-log -");
  wants_standard_output(options.png == "-", "--png -");
  wants_standard_output(options.report == "-", "--report -");
  if (options.windows_folder && !options.windows_folder->empty() &&
      (options.windows_folder->size() < 4 ||
       DriveOfRoot(options.windows_folder->substr(0, 3)) == 0)) {
    throw CLI::ValidationError("--windows-dir",
                               *options.windows_folder + " is no full path such as C:\\Windows");
  }
}

void TakeFiles(const RawOptions& raw, std::istream& input, Options& options) try {
  if (raw.files.empty()) return;
  for (const std::string& path : WithListFrom(input, raw.files)) {
    options.files.push_back(PathOnDrive(path, options.volumes.front().letter));
  }
  if (options.files.empty()) throw std::invalid_argument("the list names no file");
} catch (const std::invalid_argument& error) {
  throw CLI::ValidationError("--file", error.what());
}

// What was typed and means nothing, in a sentence with what may have been meant.
std::string UnknownText(const CLI::App& app, const std::vector<std::string>& arguments) {
  std::vector<std::string> known;
  if (app.get_subcommands().empty()) {
    std::string all;
    for (const CLI::App* each : app.get_subcommands({})) {
      known.push_back(each->get_name());
      all += (all.empty() ? "" : ", ") + each->get_name();
    }
    const bool command = !arguments.empty() && !arguments.front().starts_with('-');
    if (!command) return "a command comes first: " + all;
    return "there is no command " + arguments.front() + DidYouMean(arguments.front(), known);
  }
  const CLI::App& chosen = *app.get_subcommands().front();
  const std::vector<std::string> extras = app.remaining(true);
  const std::string unknown =
      extras.empty() ? "" : extras.front().substr(0, extras.front().find('='));
  if (!unknown.starts_with("--")) return chosen.get_name() + " does not take " + unknown;
  for (const CLI::Option* option : chosen.get_options()) {
    for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
  }
  return chosen.get_name() + " has no option " + unknown + DidYouMean(unknown, known);
}

}  // namespace

std::string JoinJobTail(const std::vector<std::string>& arguments) {
  if (arguments.size() == 1) return arguments.front();
  std::string tail;
  bool folder = false;  // the argument names one
  for (const std::string& argument : arguments) {
    if (&argument != &arguments.front()) tail += ' ';
    const bool path = folder && !argument.starts_with('/') && !argument.starts_with('-');
    const bool quote = argument.find(' ') != std::string::npos || path;
    tail += quote && !argument.starts_with('"') ? '"' + argument + '"' : argument;
    folder = EqualIgnoringAsciiCase(argument, "/dir") || EqualIgnoringAsciiCase(argument, "-dir");
  }
  return tail;
}

std::optional<ExitCode> ParseOptions(const std::vector<std::string>& arguments, Options& options,
                                     std::ostream& out, std::ostream& err, std::istream& input) {
  RawOptions raw;
  CLI::App app("Defragments and optimizes NTFS and FAT volumes.", "vornalux");
  app.require_subcommand(1);
  app.set_version_flag("--version", "vornalux " VORNALUX_VERSION);
  app.footer(kFooter);
  app.get_formatter()->column_width(28);

  const auto add = [&](const char* name, const char* help, Command value) {
    CLI::App* command = app.add_subcommand(name, help);
    command->footer(kFooter);
    command->parse_complete_callback([&options, value] { options.command = value; });
    return command;
  };
  CLI::App* analyze = add("analyze", "Look at a volume, change nothing", Command::Analyze);
  AddVolumeOptions(*analyze, options, raw);
  AddFileOption(*analyze, raw);
  analyze->add_flag("--list", options.list, "List the fragmented files");
  analyze->add_flag("--classes", options.classes, "Sort files into classes as Optimize does")
      ->excludes("--file");
  analyze
      ->add_option("--gains", options.gains,
                   "Work out for so long what passes would gain (5; with --file 0)")
      ->type_name("SECONDS")
      ->transform(kNumber);
  CLI::App* map = add("map", "Draw the cluster map, change nothing", Command::Map);
  AddVolumeOptions(*map, options, raw);
  CLI::App* trim =
      add("trim", "Give free space back: holes in an image, discards on a disk", Command::Trim);
  trim->add_option("IMAGE", raw.images, "What to work on")
      ->required()
      ->expected(1)
      ->check(EmptyName);
  AddPlaceOptions(*trim, options);
  AddDropAndDryRun(*trim, options);
  AddPriorityOptions(*trim, options);
  AddOutputOptions(*trim, options);
  for (const PassRow& row : kPasses) {
    CLI::App* command = add(row.command, row.purpose, Command::Pass);
    command->parse_complete_callback([&options, pass = row.pass] {
      options.command = Command::Pass;
      options.pass = pass;
    });
    AddVolumeOptions(*command, options, raw);
    AddWorkOptions(*command, options);
    if (row.pass == Pass::Defrag) AddFileOption(*command, raw);
    if (row.thorough != nullptr) {
      command->add_flag("--thorough", options.thorough, "Plan first: every file in one piece");
      command->add_option("--max-move", options.max_move, "With --thorough: move no more than this")
          ->type_name("BYTES")
          ->transform(kSize)
          ->needs("--thorough");
    }
  }
  CLI::App* job = add("job", "Carry out a job line", Command::Job);
  job->footer(kJobFooterBegin + PassSwitches() + kJobFooterEnd + "\n" + kFooter);
  job->add_option("--volume", raw.volumes, "A volume under a drive letter; may be repeated")
      ->type_name("C=IMAGE")
      ->allow_extra_args(false)
      ->required();
  job->add_option("--save-job", raw.save_job,
                  "Save the job on the desktop under this name; do not run it")
      ->type_name("NAME");
  AddCommonOptions(*job, options, raw);
  AddWorkOptions(*job, options);

  CLI::App* list = add("list", "List the volumes there are, change nothing", Command::List);
  list->add_option("IMAGE", raw.list_images, "What to look into; else this machine's disks")
      ->check(EmptyName);
  list->add_flag("--all", options.list_all, "List what is not NTFS or FAT, too");
  list->add_flag("--json", options.json, "Print the result as one JSON object");

  // No user's business: what the program is installed with is made by it.
  if (arguments.size() == 2 && arguments[0] == "--describe" && Describe(app, arguments[1], out)) {
    return ExitCode::Done;
  }
  // A job line is no business of the parser's: it would take it apart.
  const bool is_job = !arguments.empty() && arguments.front() == "job";
  const auto dashes =
      is_job ? std::find(arguments.begin(), arguments.end(), "--") : arguments.end();
  std::vector<std::string> reversed(std::make_reverse_iterator(dashes), arguments.rend());
  try {
    app.parse(std::move(reversed));
    if (is_job && dashes == arguments.end()) {
      throw CLI::RequiredError("A job line after \"--\"");
    }
    TakeVolumes(raw, options);
    for (const CLI::App* command : app.get_subcommands()) {
      RefuseSwallowedOptions(*command, {arguments.begin(), dashes});
      const CLI::Option* const folder = command->get_option_no_throw("--windows-dir");
      if (folder != nullptr && folder->count() != 0) options.windows_folder = raw.windows_folder;
    }
    CheckTogether(options);
    TakeFiles(raw, input, options);
  } catch (const CLI::ParseError& error) {
    const bool unknown =
        app.get_subcommands().empty() || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    app.failure_message([&](const CLI::App*, const CLI::Error& failure) {
      const std::string what = unknown ? UnknownText(app, arguments) : PlainMistake(failure.what());
      return "vornalux: " + what + "\nRun with --help for more information.\n";
    });
    const bool asked_for = app.exit(error, out, err) == static_cast<int>(CLI::ExitCodes::Success);
    return asked_for ? ExitCode::Done : ExitCode::Usage;
  }
  if (job->count("--save-job") != 0) options.save_job = raw.save_job;
  if (is_job) options.job_tail = JoinJobTail({dashes + 1, arguments.end()});
  return std::nullopt;
}

}  // namespace vornalux
