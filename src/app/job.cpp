// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/job.h"

#include <utility>

#include "app/job_tail.h"
#include "platform/machine.h"
#include "text/ascii_case.h"
#include "text/trimmed.h"

namespace vornalux {
namespace {

bool IsSwitch(std::string_view operand) {
  return operand.starts_with('-') || operand.starts_with('/');
}

static_assert(!PassOfLetter("t"), "the switch of the thorough form");

constexpr std::pair<const char*, std::uint32_t> kPriorities[] = {
    {"-low", priority::kIdle}, {"-normal", priority::kNormal}, {"-high", priority::kAboveNormal}};
constexpr std::pair<const char*, bool Job::*> kOptions[] = {
    {"-min", &Job::run_minimized},     {"-down", &Job::shutdown_when_done},
    {"-close", &Job::close_when_done}, {"-vssafe", &Job::vss_safe},
    {"-dbg", &Job::debug_log},         {"-t", &Job::thorough}};
constexpr const char* kDrive = "-drv";
constexpr const char* kFolder = "-dir";

// Lower case, with the slash form turned into the dash form.
std::string SwitchName(const std::string& token) {
  std::string name = LowerCase(token);
  if (name.starts_with('/')) name.front() = '-';
  return name;
}

class JobReader {
 public:
  explicit JobReader(const std::string& line) : parts_(SplitTail(line)) {
    reading_.job.line = line;
  }

  JobReading Read() && {
    while (next_ < parts_.tokens.size() && TakeSwitch(parts_.tokens[next_++])) {
    }
    const bool runs = !reading_.refused && !reading_.job.context_menu;
    if (std::string why = WhyNotThorough(reading_.job); runs && !why.empty()) Doubt(std::move(why));
    return std::move(reading_);
  }

 private:
  // False when nothing of the line is to be read any more.
  bool TakeSwitch(const std::string& token) {
    Job& job = reading_.job;
    const std::string name = SwitchName(token);
    if (name == "-setshell") {
      job.context_menu = true;
      return false;
    }
    if (name == kDrive) {
      TakeDrive(token);
    } else if (name == kFolder) {
      TakeFolder(token);
    } else if (!SetAction(name) && !SetPriority(name) && !SetOption(name)) {
      Object("Invalid argument: " + token);
      reading_.refused = true;
      return false;
    }
    return true;
  }

  bool SetAction(std::string_view name) {
    const std::optional<Pass> pass =
        name.starts_with('-') ? PassOfLetter(name.substr(1)) : std::nullopt;
    if (pass) reading_.job.action = pass;
    return pass.has_value();
  }

  bool SetPriority(const std::string& name) {
    for (const auto& [text, priority_class] : kPriorities) {
      if (name == text) reading_.job.priorities.push_back(priority_class);
      if (name == text) return true;
    }
    return false;
  }

  bool SetOption(const std::string& name) {
    for (const auto& [text, option] : kOptions) {
      if (name == text) reading_.job.*option = true;
      if (name == text) return true;
    }
    return false;
  }

  // Without an operand the switch stands in for it, and is refused as one: two objections.
  const std::string* Operand(const std::string& token, const char* missing, const char* invalid) {
    const bool given = next_ < parts_.tokens.size();
    if (!given) Object(missing);
    const std::string& operand = given ? parts_.tokens[next_++] : token;
    if (!IsSwitch(operand)) return &operand;
    Object(invalid);
    return nullptr;
  }

  void TakeDrive(const std::string& token) {
    const std::string* drive = Operand(token, "No drive specified.", "Invalid drivename.");
    if (!drive) return;
    const std::string before = std::exchange(reading_.job.root, NormalRoot(*drive));
    if (!reading_.job.directory.empty() && !EqualIgnoringAsciiCase(before, reading_.job.root)) {
      Doubt("The folder is on drive " + before + ", and then the line names drive " +
            reading_.job.root + ".");
    }
  }

  // The quoted text as typed, of which the operand has lost its blanks.
  void TakeFolder(const std::string& token) {
    const std::string* operand = Operand(token, "No dir specified.", "Invalid directory.");
    if (!operand) return;
    const std::string& path = parts_.quoted;
    if (path.size() < 2 || path[1] != ':') return Object("No dir specified.");
    if (*operand != SplitTail('"' + path).tokens.front()) {
      Doubt("What follows /dir is not the first text in quotes, " + path + ".");
    }
    reading_.job.root = NormalRoot(path.substr(0, 2));
    reading_.job.directory = NormalFolder(path.substr(2));
  }

  void Object(std::string text) { reading_.objections.push_back(std::move(text)); }
  void Doubt(std::string text) { reading_.doubts.push_back(std::move(text)); }

  JobTail parts_;
  std::size_t next_ = 0;
  JobReading reading_;
};

}  // namespace

std::vector<std::string> JobSwitches() {
  std::vector<std::string> switches;
  const auto add = [&switches](std::string_view name) {
    switches.push_back("/" + std::string(name.substr(1)));
  };
  for (const char* name : {kDrive, kFolder}) add(name);
  for (const PassRow& row : kPasses) switches.push_back({'/', row.letter});
  for (const auto& row : kPriorities) add(row.first);
  for (const auto& row : kOptions) add(row.first);
  return switches;
}

bool RunsThorough(const Job& job) {
  return job.thorough && job.action && RowOf(*job.action).thorough != nullptr;
}

std::string WhyNotThorough(const Job& job) {
  if (!job.thorough || RunsThorough(job)) return {};
  std::string switches;
  for (const PassRow& row : kPasses) {
    if (row.thorough == nullptr) continue;
    switches += (switches.empty() ? "/" : " or /") + std::string(1, row.letter);
  }
  return (job.action ? RowOf(*job.action).name + std::string(" has no thorough form")
                     : std::string("The line names no pass")) +
         ": /t goes with " + switches + ".";
}

JobReading ParseJob(std::string_view tail) { return JobReader(Trimmed(std::string(tail))).Read(); }

}  // namespace vornalux
