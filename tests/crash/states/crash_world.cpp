// SPDX-License-Identifier: GPL-2.0-or-later
#include "crash/states/crash_world.h"

#include <algorithm>
#include <array>
#include <optional>

#include "app/program.h"
#include "check/volume_check.h"
#include "host/image/fat/fat_volume.h"
#include "host/image/journal/journal_format.h"
#include "host/image/ntfs/open_ntfs.h"
#include "host/image/opening/finish_run.h"
#include "host/image/volume/refused.h"
#include "host/simulated/simulated_platform.h"
#include "support/image_folder.h"
#include "volumes/contract/contract.h"

namespace vornalux::test {
namespace {

using Kind = DeviceEvent::Kind;

VolumeIdentity IdentityAt(const char* place) { return {{'T', 'E', 'S', 'T'}, 1, 0, 0, {}, place}; }

std::unique_ptr<ImageVolume> OpenVolume(VolumeStore store) {
  std::array<std::uint8_t, 8> boot{};
  store.device->Read(0, boot);
  return boot[3] == 'N' ? OpenNtfsVolume(std::move(store)) : OpenFatVolume(std::move(store));
}

std::unique_ptr<ImageVolume> Open(std::unique_ptr<BlockDevice> device, MemoryJournal& journal,
                                  bool recovering, CommitLimits limits = {}) {
  VolumeStore store;
  store.device = std::move(device);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal);
  store.identity = IdentityAt(kHere);
  store.recovering = recovering;
  store.limits = std::move(limits);
  return OpenVolume(std::move(store));
}

// As of a machine whose clock jumps, so that some commits are settled and most are followed by
// others first, and to which few bytes are a large move.
CommitLimits Limits(std::shared_ptr<Random> random) {
  const std::uint64_t jumps = 2 + Below(*random, 12);
  const std::uint64_t large = std::uint64_t{1024} << Below(*random, 5);
  return {.waiting_move = large, .piece = 4096, .clock = [=, now = std::uint64_t{0}]() mutable {
            return now += Below(*random, jumps) == 0 ? 2000U : 0U;
          }};
}

// Moves of anything to anywhere, often to where something has just been.
void MoveAbout(ImageVolume& volume, Random& random) {
  const auto streams = contract::Walk(volume, true);
  const auto clusters = static_cast<std::uint64_t>(volume.Facts().total_clusters);
  std::vector<std::int64_t> left;
  for (int tries = 0; tries < 60 && !streams.empty(); ++tries) {
    const StreamRef& stream = streams[Below(random, streams.size())].ref;
    std::vector<Extent> extents;
    if (volume.Extents(stream, extents) != error::kSuccess || extents.empty()) continue;
    const auto end = static_cast<std::uint64_t>(extents.back().NextVcn);
    auto to = static_cast<std::int64_t>(Below(random, clusters));
    if (!left.empty() && Below(random, 2) == 0) to = left[Below(random, left.size())];
    const ErrorCode code = volume.Move(stream, static_cast<std::int64_t>(Below(random, end)), to,
                                       1 + static_cast<std::int64_t>(Below(random, end)));
    if (code == error::kSuccess) left.push_back(extents.front().Lcn);
    if (Below(random, 12) == 0) volume.Commit();
  }
}

std::string LayoutOf(const CheckReport& report) {
  std::string layout;
  for (const CheckedItem& item : report.items) {
    layout += item.path + ":" + item.stream;
    for (const CheckedExtent& run : item.extents) {
      layout += " " + std::to_string(run.lcn) + "+" + std::to_string(run.count);
    }
    layout += "\n";
  }
  return layout;
}

}  // namespace

void Machine::Apply(const DeviceEvent& event, std::size_t from, std::size_t length) {
  if (event.kind == Kind::Write) {
    BlockDevice& device = event.device == 0 ? static_cast<BlockDevice&>(volume) : journal.store;
    device.Write(event.offset + from, std::span(event.data).subspan(from, length));
  } else if (event.kind != Kind::Flush) {
    journal.exists = event.kind == Kind::Create;
    journal.store.Content().clear();
  }
}

std::vector<Cut> CutsOf(const Machine& start, const DeviceLog& log) {
  std::vector<Cut> cuts;
  Cut now{0, start, {}, 0};
  bool recorded = false;
  for (std::size_t i = 0; i <= log.size(); ++i) {
    now.event = i;
    if (i == log.size()) {
      cuts.push_back(now);
      break;
    }
    const DeviceEvent& event = log[i];
    if (event.kind == Kind::Write) {
      now.in_flight.push_back(&event);
      recorded = recorded || (event.device == 1 && event.offset >= journal_format::kRecordOffset);
      continue;
    }
    cuts.push_back(now);
    std::erase_if(now.in_flight, [&](const DeviceEvent* write) {
      if (write->device != event.device) return false;
      if (event.kind == Kind::Flush) now.durable.Apply(*write);
      return true;
    });
    now.durable.Apply(event);
    if (event.device == 1 && event.kind == Kind::Flush && recorded) {
      ++now.commits;
      recorded = false;
    }
  }
  return cuts;
}

CrashWorld::CrashWorld(const Bytes& volume, std::string job, std::uint64_t seed, bool another)
    : job_(std::move(job)),
      seed_(seed),
      start_{PagedDevice(std::make_shared<Bytes>(volume)), {}},
      ntfs_(volume[3] == 'N') {
  const CheckReport report = CheckVolume(MemorySource(volume), {.hash = true});
  manifest_ = ManifestOf(report.items);
  trouble_ = report.ProblemText();
  if (!trouble_.empty()) return;
  Machine machine = start_;
  Run(machine, job_, seed_, log_);
  cuts_ = CutsOf(start_, log_);
  FindCommitted();
  if (!another) return;
  Machine other = start_;
  Run(other, "", seed_ + 1, other_log_);
  other_cuts_ = CutsOf(start_, other_log_);
}

void CrashWorld::Run(Machine& machine, const std::string& job, std::uint64_t seed, DeviceLog& log) {
  const auto random = std::make_shared<Random>(seed);
  machine.journal.log = &log;
  const auto volume = Open(std::make_unique<RecordingDevice>(machine.volume, log, 0),
                           machine.journal, false, Limits(random));
  if (job.empty()) {
    MoveAbout(*volume, *random);
  } else {
    SimulatedPlatform platform({.windows_folder = "C:\\Windows"});
    platform.Mount('C', *volume);
    Program program(platform.All());
    program.launcher.SelectDrive("C:\\");
    program.main_window.OpenMenu();
    if (program.launcher.process_cmd_line(job) != JobOutcome::Done) trouble_ = "the job failed";
  }
  if (const ErrorCode code = volume->Close()) trouble_ = "Close: error " + std::to_string(code);
  machine.journal.log = nullptr;
}

// A commit is there from the flush of its record on, and what it says follows in its place.
void CrashWorld::FindCommitted() {
  Machine now = start_;
  bool recorded = false;
  const auto note = [&] {
    const Verdict& verdict = Judge(now.volume);
    if (!verdict.trouble.empty()) trouble_ = verdict.trouble;
    committed_.push_back(verdict.layout);
  };
  for (const DeviceEvent& event : log_) {
    if (event.device == 1 && event.kind == Kind::Flush && recorded) {
      note();
      recorded = false;
    }
    recorded = recorded || (event.device == 1 && event.kind == Kind::Write &&
                            event.offset >= journal_format::kRecordOffset);
    now.Apply(event);
  }
  note();
}

Recovery CrashWorld::Recover(Machine& machine, const char* place, DeviceLog& log) {
  if (!machine.journal.exists) return {};
  const JournalFinding finding =
      RedoJournal(machine.journal.store, machine.volume).Judge(IdentityAt(place));
  if (finding.error) return {Ended::Refused, finding.error.message()};
  if (finding.state == JournalState::Empty) {
    machine.journal.log = &log;
    MemoryJournalHome(machine.journal).Remove();
    machine.journal.log = nullptr;
    return {};
  }
  if (finding.state != JournalState::Idle && finding.state != JournalState::Pending) {
    return {Ended::Refused, finding.detail};
  }
  // Now and then as the program does it, with nothing known from before.
  std::optional<Machine> whole;
  Recovery real;
  if (++recoveries_ % 256 == 1) real = FinishForReal(whole.emplace(machine), place);
  Machine trial = machine;
  DeviceLog nothing;
  Recovery recovery = Finish(trial, place, nothing);
  if (recovery.ended == Ended::Whole) recovery = Finish(machine, place, log);
  if (whole && (real.ended != recovery.ended || real.why != recovery.why ||
                whole->journal.exists != machine.journal.exists ||
                whole->volume.Changes() != machine.volume.Changes())) {
    trouble_ = "the program recovers otherwise: " + real.why;
  }
  return recovery;
}

Recovery CrashWorld::FinishForReal(Machine& machine, const char* place) const try {
  FinishRun({.store =
                 [&] {
                   VolumeStore store;
                   store.device = std::make_unique<BorrowedDevice>(machine.volume);
                   store.identity = IdentityAt(place);
                   return store;
                 },
             .open = OpenVolume,
             .home = std::make_shared<MemoryJournalHome>(machine.journal),
             .cannot = [](const std::string& why) { throw VolumeRefused(why); }});
  return {Ended::Whole, ""};
} catch (const VolumeRefused& refused) {
  return {Ended::Refused, refused.what()};
}

Recovery CrashWorld::Finish(Machine& machine, const char* place, DeviceLog& log) {
  RecordingDevice volume(machine.volume, log, 0);
  RecordingDevice store(machine.journal.store, log, 1);
  const JournalFinding finding = RedoJournal(store, volume).Recover(IdentityAt(place));
  if (finding.error) return {Ended::Refused, finding.error.message()};
  return EndRun(machine, log);
}

// What a file system does here follows from what it reads of the volume and of the journal's two
// first sectors. So it is asked once for each such content.
Recovery CrashWorld::EndRun(Machine& machine, DeviceLog& log) {
  const PageChanges changes = machine.volume.Changes();
  const Bytes& store = machine.journal.store.Content();
  const std::uint64_t salt = HashBytes(std::span(store).first(
      std::min<std::size_t>(store.size(), journal_format::kProofOffset + journal_format::kSector)));
  if (const Ending* const known = endings_.Find(changes, salt)) {
    for (const DeviceEvent& event : known->log) machine.Apply(event);
    log.insert(log.end(), known->log.begin(), known->log.end());
    return known->recovery;
  }
  Ending ending;
  ReadTrace trace(machine.volume);
  machine.journal.log = &ending.log;
  try {
    const ErrorCode code =
        Open(std::make_unique<RecordingDevice>(trace, ending.log, 0), machine.journal, true)
            ->Recover();
    ending.recovery.ended = code == error::kSuccess ? Ended::Whole : Ended::Refused;
    if (code) ending.recovery.why = "error " + std::to_string(code);
  } catch (const VolumeRefused& refused) {
    ending.recovery = {Ended::Refused, refused.what()};
  }
  machine.journal.log = nullptr;
  log.insert(log.end(), ending.log.begin(), ending.log.end());
  return endings_.Keep(trace.pages, changes, salt, std::move(ending)).recovery;
}

const CrashWorld::Verdict& CrashWorld::Judge(PagedDevice& volume) {
  const PageChanges changes = volume.Changes();
  if (const Verdict* const known = verdicts_.Find(changes)) return *known;
  const ReadTrace trace(volume);
  const CheckReport report = CheckVolume(trace, {.hash = true});
  Verdict verdict{report.ProblemText(), true, 0, report.dirty};
  for (const std::string& problem : report.problems) {
    const bool torn =
        problem.find(": fixup ") != std::string::npos && problem.find("index") == std::string::npos;
    const bool taken = problem.find("marked free but owned") != std::string::npos;
    verdict.sound = verdict.sound && !torn && !taken;
  }
  for (const std::string& line : CompareContent(report.items, manifest_)) {
    verdict.trouble += line + "\n";
  }
  const auto [layout, fresh] =
      layouts_.try_emplace(LayoutOf(report), static_cast<int>(layouts_.size()));
  verdict.layout = layout->second;
  if (fresh && verdict.trouble.empty() && !verdict.dirty && layouts_.size() % 4 == 2) {
    verdict.trouble = AskStrangers(volume);
  }
  return verdicts_.Keep(trace.pages, changes, 0, std::move(verdict));
}

std::string CrashWorld::JudgeAlone(const PagedDevice& volume) const {
  PagedDevice copy = volume;
  const CheckReport report = CheckVolume(ReadTrace(copy), {.hash = true});
  if (report.dirty) return "";
  std::string trouble;
  for (const std::string& problem : report.problems) {
    // FAT16 and FAT32 keep the mark in each table, NTFS twice; nobody mounts that without it.
    const bool mark = problem.ends_with("at byte 3") || problem.ends_with("at byte 7") ||
                      problem == "$MFTMirr: record 3 differs from $MFT's";
    if (problem == "$Volume: no volume information") return "";
    if (!mark) trouble += problem + "\n";
  }
  for (const std::string& line : CompareContent(report.items, manifest_)) trouble += line + "\n";
  return trouble.empty() ? "" : "not marked dirty without its journal, but: " + trouble;
}

std::string CrashWorld::AskStrangers(const PagedDevice& volume) const try {
  const ScratchFolder folder;
  folder.Put("image", volume.Content());
  folder.Run(ntfs_ ? "ntfsresize --info --force --no-progress-bar image" : "fsck.fat -n image");
  return "";
} catch (const std::runtime_error& error) {
  return error.what();
}

// Often the job ends where it would have ended, or where doing it once more would: not always,
// since a file for which there was no gap may find one that the interrupted job has made behind it.
std::string CrashWorld::GoOn(const Machine& machine, const Verdict& verdict) {
  const auto known = going_on_.find(verdict.layout);
  if (known != going_on_.end()) return known->second;
  std::string& trouble = going_on_[verdict.layout];
  if (ends_.empty()) {
    Machine end = start_;
    for (const DeviceEvent& event : log_) end.Apply(event);
    ends_ = {committed_.back()};
    for (int again = 0; again < 3; ++again) ends_.push_back(LayoutAfterJob(end, trouble));
  }
  Machine next = machine;
  const int layout = LayoutAfterJob(next, trouble);
  ++resumed_;
  same_end_ += std::find(ends_.begin(), ends_.end(), layout) != ends_.end();
  return trouble;
}

int CrashWorld::LayoutAfterJob(Machine& machine, std::string& trouble) {
  DeviceLog log;
  Run(machine, job_, seed_, log);
  const Verdict& end = Judge(machine.volume);
  if (trouble.empty()) trouble = end.trouble;
  if (trouble.empty() && machine.journal.exists) trouble = "a journal is left";
  return end.layout;
}

}  // namespace vornalux::test
