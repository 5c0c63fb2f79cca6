// SPDX-License-Identifier: GPL-2.0-or-later
#include "crash/states/crash_points.h"

#include <algorithm>

namespace vornalux::test {
namespace {

constexpr std::size_t kSamples = 48;

bool SameBytes(const Machine& a, const PageChanges& b) { return a.volume.Changes() == b; }

}  // namespace

CrashPoints::CrashPoints(const Cut& cut, std::uint64_t seed) : cut_(cut), seed_(seed) {
  cut.durable.volume.Changes();  // known to all copies then
  for (const std::size_t unit : {std::size_t{0}, std::size_t{512}, std::size_t{4096}}) {
    Way way;
    for (const DeviceEvent* const write : cut.in_flight) {
      for (std::size_t at = 0; at < write->data.size();) {
        const std::size_t left = write->data.size() - at;
        const std::size_t length =
            unit == 0 ? left : std::min(left, unit - (write->offset + at) % unit);
        way.parts.push_back({write, at, length});
        at += length;
      }
    }
    // Where nothing can be torn there is nothing new.
    if (unit != 0 && way.parts.size() == ways_.front().parts.size()) continue;
    const std::size_t parts = way.parts.size();
    way.choices = parts <= kExhaustive ? std::size_t{1} << parts : kSamples;
    count_ += way.choices;
    ways_.push_back(std::move(way));
  }
}

Machine CrashPoints::Left(std::size_t choice) const {
  Random random(Mix(seed_, choice));
  Machine machine = cut_.durable;
  auto way = ways_.begin();
  while (choice >= way->choices) choice -= (way++)->choices;
  const std::size_t parts = way->parts.size();
  // Now most of them, now hardly any.
  const std::uint64_t percent = Below(random, 101);
  for (std::size_t i = 0; i < parts; ++i) {
    const bool there = parts <= kExhaustive ? (choice >> i & 1) != 0 : Below(random, 100) < percent;
    const Part& part = way->parts[i];
    if (there) machine.Apply(*part.write, part.from, part.length);
  }
  return machine;
}

namespace {

// One state and all that is tried on it.
class Trial {
 public:
  Trial(CrashWorld& world, const Machine& crashed, std::size_t commits, std::uint64_t seed,
        Tally& tally)
      : world_(world), crashed_(crashed), commits_(commits), random_(seed), tally_(tally) {}

  std::string Run() {
    ++tally_.states;
    Machine whole = crashed_;
    std::string trouble = RecoverWhole(whole, recovery_);
    if (trouble.empty()) trouble = JudgeCommitted(whole);
    if (trouble.empty() && Below(random_, 16) == 0) trouble = world_.JudgeAlone(crashed_.volume);
    if (!trouble.empty() || !crashed_.journal.exists) return trouble;
    before_ = crashed_.volume.Changes();
    after_ = whole.volume.Changes();
    trouble = Again();
    if (trouble.empty()) trouble = Clone();
    if (trouble.empty()) trouble = Backup();
    if (trouble.empty()) trouble = OtherJournal();
    return trouble;
  }

 private:
  Recovery Recover(Machine& machine, const char* place, DeviceLog& log) {
    ++tally_.recoveries;
    Recovery recovery = world_.Recover(machine, place, log);
    tally_.refused += recovery.ended == Ended::Refused;
    return recovery;
  }

  std::string RecoverWhole(Machine& machine, DeviceLog& log) {
    const Recovery recovery = Recover(machine, kHere, log);
    if (recovery.ended == Ended::Refused) return "refused: " + recovery.why;
    return machine.journal.exists ? "a journal is left" : "";
  }

  // With all earlier commits, and nothing but whole ones; the job goes on from there.
  std::string JudgeCommitted(Machine& machine) {
    const CrashWorld::Verdict& verdict = world_.Judge(machine.volume);
    if (!verdict.trouble.empty()) return verdict.trouble;
    if (verdict.dirty) return "left dirty";
    const std::vector<int>& states = world_.Committed();
    const bool before = verdict.layout == states[commits_];
    const bool after = commits_ + 1 < states.size() && verdict.layout == states[commits_ + 1];
    if (!before && !after) return "in no committed state";
    const std::string trouble = world_.GoOn(machine, verdict);
    return trouble.empty() ? "" : "going on: " + trouble;
  }

  // The power goes again while somebody recovers, up to three times.
  std::string Again() {
    Machine machine = crashed_;
    DeviceLog log = recovery_;
    for (std::uint64_t depth = 1 + Below(random_, 3);; --depth) {
      const std::vector<Cut> cuts = CutsOf(machine, log);
      const Cut& cut = cuts[Below(random_, cuts.size())];
      const CrashPoints points(cut, random_());
      machine = points.Left(Below(random_, points.Count()));
      ++tally_.states;
      Machine whole = machine;
      DeviceLog next;
      const std::string trouble = RecoverWhole(whole, next);
      if (!trouble.empty()) return "after a crash during recovery: " + trouble;
      if (!SameBytes(whole, after_)) return "recovering twice gives other bytes";
      if (depth == 1) return "";
      log = std::move(next);
    }
  }

  // Refused with nothing changed, or as whole as it would be here.
  std::string Clone() {
    Machine clone = crashed_;
    DeviceLog log;
    const Recovery recovery = Recover(clone, kElsewhere, log);
    const bool whole = recovery.ended == Ended::Whole;
    return SameBytes(clone, whole ? after_ : before_) ? "" : "a clone was changed";
  }

  std::string Backup() {
    for (const char* place : {kHere, kElsewhere}) {
      Machine backup = world_.Start();
      backup.journal = crashed_.journal;
      DeviceLog log;
      Recover(backup, place, log);
      if (!SameBytes(backup, {})) return "a backup was changed";
    }
    return "";
  }

  // Of an earlier or a later moment of this run, often a near one, or of another run.
  std::string OtherJournal() {
    const bool own = world_.OtherCuts().empty() || Below(random_, 3) != 0;
    const auto& cuts = own ? world_.Cuts() : world_.OtherCuts();
    Machine mixed = crashed_;
    mixed.journal = cuts[Below(random_, cuts.size())].durable.journal;
    DeviceLog log;
    ++tally_.other_journals;
    const Recovery recovery = Recover(mixed, kHere, log);
    if (recovery.ended != Ended::Whole) {
      return SameBytes(mixed, before_) ? "" : "changed beside another journal, and " + recovery.why;
    }
    const CrashWorld::Verdict& verdict = world_.Judge(mixed.volume);
    if (!verdict.sound) return "taken for whole beside another journal: " + verdict.trouble;
    // Data and folders that waited for their commit leave no trace in tables: a journal that knows
    // nothing of them cannot miss them. Counted.
    tally_.mistaken += !verdict.trouble.empty();
    return "";
  }

  CrashWorld& world_;
  const Machine& crashed_;
  std::size_t commits_;
  Random random_;
  Tally& tally_;
  DeviceLog recovery_;
  PageChanges before_, after_;
};

}  // namespace

std::string TryState(CrashWorld& world, const Cut& cut, const CrashPoints& points,
                     std::size_t choice, std::uint64_t seed, Tally& tally) {
  const Machine crashed = points.Left(choice);
  return Trial(world, crashed, cut.commits, Mix(seed, choice + 1), tally).Run();
}

}  // namespace vornalux::test
