// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/leftover_journal.h"

#include <optional>
#include <utility>

#include "host/image/fat/fat_volume.h"
#include "host/image/journal/scratch_journal.h"
#include "host/image/ntfs/open_ntfs.h"
#include "host/image/opening/finish_run.h"
#include "host/image/opening/journal_file.h"

namespace vornalux {
namespace {

// What is left of an interrupted run, and what may be done with it.
class Leftover {
 public:
  Leftover(ImageSource& source, const std::string& path, const OpenOptions& options,
           OpenReport& report)
      : source_(source),
        path_(path),
        options_(options),
        report_(report),
        to_disk_(options.writable && !options.dry_run),
        home_(std::make_shared<FileJournalHome>(source.journal_path)) {}

  void Settle() {
    if (!home_->Exists()) return;
    if (!Take()) return;
    const std::optional<JournalState> state = Judge();
    if (!state) return;
    if (*state == JournalState::Empty) {
      // Where it cannot be removed it is in nobody's way.
      if (!options_.dry_run) home_->Remove();
      return;
    }
    if (to_disk_) {
      Finish(home_);
    } else if (options_.dry_run || !ReopenForWriting()) {
      FinishInMemory();
    } else {
      FinishOrShow();
    }
  }

 private:
  // Nothing may be done here that relies on the journal.
  void Object(const std::string& why) {
    if (to_disk_) throw VolumeRefused(source_.path + " " + why);
    report_.objections.push_back(source_.path + " " + why);
  }

  bool Take() {
    std::string why = home_->Take(!options_.dry_run);
    if (!why.empty() && !to_disk_ && !options_.dry_run && !home_->Busy()) {
      why = home_->Take(false);
      can_write_ = false;
    }
    if (why.empty()) return true;
    if (home_->Busy()) {
      // The volume itself is ours: it is the other run's volume that goes by the same name.
      Object("cannot be worked on now: its journal " + home_->Path() + " " + why +
             ", on a volume that looks the same");
    } else {
      Object("has a journal " + home_->Path() + " that " + why +
             ". Nothing was done with it. If an interrupted run of yours left it, run this as the "
             "user who started that one; if not, delete it");
    }
    return false;
  }

  // Nothing when the journal is not to be used, which has been told.
  std::optional<JournalState> Judge() {
    const VolumeStore store = MakeStore(source_);
    std::shared_ptr<BlockDevice> file;
    std::error_code error = home_->Open(file);
    JournalFinding finding;
    if (!error) finding = RedoJournal(*file, *store.device).Judge(source_.identity);
    if (!error) error = finding.error;
    if (error) {
      Object("has a journal " + home_->Path() + " that cannot be used: " + error.message());
      return std::nullopt;
    }
    const bool fits = finding.state == JournalState::Empty || finding.state == JournalState::Idle ||
                      finding.state == JournalState::Pending;
    if (fits) return finding.state;
    if (finding.state == JournalState::Newer) {
      Object("has a journal " + home_->Path() + " of a newer version of this program (" +
             finding.detail +
             "). Nothing was done with it. Keep it, and run the newer version on the volume before "
             "anything else opens it, analyze is enough: it finishes what was interrupted");
      return std::nullopt;
    }
    if (finding.state == JournalState::Unclear) {
      Object(
          "has a journal of a run that was interrupted when nothing of it had reached this "
          "volume. If no other volume just like it was being worked on, a clone or the original, "
          "delete the journal (" +
          home_->Path() + "); else go on with that one first");
      return std::nullopt;
    }
    const bool ntfs = source_.boot.kind == BootKind::Ntfs;
    Object("has a journal of an interrupted run that does not fit it: " + finding.detail +
           ". Nothing was written. If this is a backup that was restored, a copy, or another "
           "volume in its place, delete the journal (" +
           home_->Path() +
           "). If it is the volume of that run, another program has written to "
           "it since: check it (" +
           (ntfs ? "chkdsk /f on Windows" : "fsck.fat -a") + ") and then delete the journal");
    return std::nullopt;
  }

  // For who looks at the volume; the journal stays ours meanwhile.
  bool ReopenForWriting() {
    if (!can_write_) return false;
    source_.file.reset();  // our own read lock would keep us out
    try {
      source_ = LocateVolume(path_, options_, true);
      return true;
    } catch (const VolumeRefused& refused) {
      why_in_memory_ = refused.what();
    }
    source_ = LocateVolume(path_, options_, false);
    return false;
  }

  // The volume is finished by its own rules: the dirty mark goes, durably, then the journal.
  void Finish(const std::shared_ptr<JournalHome>& home) {
    const RunToFinish run{
        .store = [this] { return MakeStore(source_); },
        .open = [this](VolumeStore store) { return OpenFileSystem(source_, std::move(store)); },
        .home = home,
        .cannot = [this](const std::string& why) { CannotFinish(why); }};
    const std::string done = source_.scratch ? FinishRunAtOnce(run) : FinishRun(run);
    report_.recovered = true;
    report_.recovery = "An earlier run was interrupted; its work was made whole: " + done + ".";
  }

  [[noreturn]] void CannotFinish(const std::string& why) const {
    throw VolumeRefused(source_.path +
                        " was being worked on when a run was interrupted, and that "
                        "run cannot be finished: " +
                        why + ". Its journal is " + source_.journal_path);
  }

  void FinishInMemory() {
    if (!source_.scratch) source_.scratch = std::make_shared<ScratchDevice>(source_.file);
    std::shared_ptr<BlockDevice> file;
    if (const std::error_code error = home_->Open(file)) CannotFinish(error.message());
    Finish(std::make_shared<ScratchJournalHome>(std::move(file)));
    report_.recovery =
        options_.dry_run
            ? "An earlier run was interrupted. This dry run starts from what finishing it will "
              "give; any run that is not dry, analyze included, finishes it."
            : "An earlier run was interrupted and cannot be finished now; what is shown is what "
              "finishing it will give." +
                  (why_in_memory_.empty() ? "" : " " + why_in_memory_);
  }

  // Full disks and the like are no reason not to look.
  void FinishOrShow() {
    try {
      Finish(home_);
      source_.file.reset();
      source_ = LocateVolume(path_, options_, false);
    } catch (const VolumeRefused& refused) {
      why_in_memory_ = refused.what();
      source_.file.reset();
      source_ = LocateVolume(path_, options_, false);
      FinishInMemory();
    }
  }

  ImageSource& source_;
  const std::string& path_;
  const OpenOptions& options_;
  OpenReport& report_;
  bool to_disk_;
  bool can_write_ = true;
  std::string why_in_memory_;
  std::shared_ptr<FileJournalHome> home_;
};

}  // namespace

std::unique_ptr<ImageVolume> OpenFileSystem(const ImageSource& source, VolumeStore store) {
  return source.boot.kind == BootKind::Ntfs ? OpenNtfsVolume(std::move(store))
                                            : OpenFatVolume(std::move(store));
}

void SettleLeftover(ImageSource& source, const std::string& path, const OpenOptions& options,
                    OpenReport& report) {
  Leftover(source, path, options, report).Settle();
}

}  // namespace vornalux
