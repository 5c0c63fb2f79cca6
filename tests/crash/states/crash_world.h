// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "check/content.h"
#include "crash/states/paged_device.h"

namespace vornalux::test {

// A volume and the journal beside it, as they are durable.
struct Machine {
  PagedDevice volume;
  MemoryJournal journal;

  void Apply(const DeviceEvent& event, std::size_t from, std::size_t length);
  void Apply(const DeviceEvent& event) { Apply(event, 0, event.data.size()); }
};

enum class Ended { Nothing, Whole, Refused };  // there was nothing to do, it was done, it was not

struct Recovery {
  Ended ended = Ended::Nothing;
  std::string why;
};

// Who finds the journal: where it was written, or at a place that is just like it.
inline constexpr const char* kHere = "here";
inline constexpr const char* kElsewhere = "elsewhere";

// A moment of a job, just before an event. What was written since the last flush may be there or
// not, in any choice.
struct Cut {
  std::size_t event = 0;
  Machine durable;
  std::vector<const DeviceEvent*> in_flight;
  std::size_t commits = 0;  // that must be there
};
std::vector<Cut> CutsOf(const Machine& start, const DeviceLog& log);

// One volume and one job on it, written down from the first write to the last.
class CrashWorld {
 public:
  // job: a job line, or empty for moves anywhere. Without another run there are no OtherCuts().
  CrashWorld(const Bytes& volume, std::string job, std::uint64_t seed, bool another = true);

  const std::vector<Cut>& Cuts() const { return cuts_; }
  // What is wrong with the world itself; empty when nothing is.
  const std::string& Trouble() const { return trouble_; }
  const Machine& Start() const { return start_; }
  const DeviceLog& Log() const { return log_; }

  // What a program does that finds the journal. log: what it does to volume (0) and journal (1).
  Recovery Recover(Machine& machine, const char* place, DeviceLog& log);

  struct Verdict {
    std::string trouble;  // structure and content
    bool sound = false;   // as far as the program itself proves it
    int layout = 0;       // the same for the same extents of everything
    bool dirty = false;
  };
  const Verdict& Judge(PagedDevice& volume);

  // As another system sees it that knows nothing of journals: what bears no dirty mark is whole.
  std::string JudgeAlone(const PagedDevice& volume) const;

  // Layouts that a commit has made, in order; the first is that of the start.
  const std::vector<int>& Committed() const { return committed_; }

  // Begins the job again on such a volume. What is wrong with how it ends.
  std::string GoOn(const Machine& machine, const Verdict& verdict);

  // From how many layouts the job was begun again, and of these, how often it ended in the same
  // one.
  std::pair<std::uint64_t, std::uint64_t> Resumed() const { return {resumed_, same_end_}; }

  // Another job on the same volume: journals of other runs.
  const std::vector<Cut>& OtherCuts() const { return other_cuts_; }

 private:
  void Run(Machine& machine, const std::string& job, std::uint64_t seed, DeviceLog& log);
  Recovery FinishForReal(Machine& machine, const char* place) const;
  Recovery Finish(Machine& machine, const char* place, DeviceLog& log);
  Recovery EndRun(Machine& machine, DeviceLog& log);
  void FindCommitted();
  int LayoutAfterJob(Machine& machine, std::string& trouble);
  std::string AskStrangers(const PagedDevice& volume) const;

  std::string job_;
  std::uint64_t seed_;
  Machine start_;
  DeviceLog log_, other_log_;
  std::vector<Cut> cuts_, other_cuts_;
  std::string trouble_;
  bool ntfs_;
  Manifest manifest_;
  std::vector<int> committed_;
  std::map<std::string, int> layouts_;
  ReadMemo<Verdict> verdicts_;
  struct Ending {
    Recovery recovery;
    DeviceLog log;
  };
  ReadMemo<Ending> endings_;
  std::uint64_t recoveries_ = 0;
  std::vector<int> ends_;  // layouts, of the job and of the same job done again
  std::uint64_t resumed_ = 0, same_end_ = 0;
  std::map<int, std::string> going_on_;  // by layout, what is wrong
};

}  // namespace vornalux::test
