// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/image_file.h"

#include <utility>

#include "host/image/image_source.h"
#include "host/image/journal_file.h"

namespace vornalux {
namespace {

std::unique_ptr<ImageVolume> OpenFileSystem(const ImageSource& source, VolumeStore store) {
  return source.boot.kind == BootKind::Ntfs ? OpenNtfsVolume(std::move(store))
                                            : OpenFatVolume(std::move(store));
}

[[noreturn]] void RefuseJournal(const ImageSource& source, const std::string& why) {
  throw VolumeRefused(source.path + " was being worked on when a run was interrupted, and its " +
                      "journal " + source.journal_path + " " + why);
}

// The journal that an interrupted run left; for a dry run as a copy in memory.
std::unique_ptr<BlockDevice> OpenLeftover(const ImageSource& source) {
  FileJournalHome home(source.journal_path);
  std::unique_ptr<BlockDevice> file;
  const std::error_code error = source.scratch ? home.OpenForReading(file) : home.Open(file);
  if (error) RefuseJournal(source, "cannot be opened: " + error.message());
  if (!source.scratch) return file;
  return std::make_unique<ScratchDevice>(std::move(file), true);
}

JournalFinding FinishCommit(const ImageSource& source, const VolumeStore& store) {
  const std::unique_ptr<BlockDevice> file = OpenLeftover(source);
  JournalFinding finding = RedoJournal(*file, *store.device).Recover(source.identity);
  if (finding.error) RefuseJournal(source, "cannot be used: " + finding.error.message());
  const char* const advice =
      source.boot.kind == BootKind::Ntfs ? "chkdsk /f on Windows" : "fsck.fat -a";
  if (finding.state == JournalState::Foreign) {
    RefuseJournal(source, "cannot be used: " + finding.detail +
                              ". If the image was replaced since, delete the journal");
  }
  if (finding.state == JournalState::Conflict) {
    RefuseJournal(source, "no longer fits: " + finding.detail +
                              ". Nothing was written. Check the volume (" + advice +
                              "), then delete the journal");
  }
  return finding;
}

// Finishes what an interrupted run left, so that the journal is gone and the volume clean.
void RecoverVolume(const ImageSource& source, OpenReport& report) {
  VolumeStore store = MakeStore(source, true);
  const JournalFinding finding = FinishCommit(source, store);
  if (finding.state == JournalState::Empty) {
    store.journal_home->Remove();
    return;
  }
  store.recovering = true;
  const std::unique_ptr<ImageVolume> volume = OpenFileSystem(source, std::move(store));
  if (const ErrorCode code = volume->Recover()) {
    RefuseJournal(source, "could not be finished: error " + std::to_string(code));
  }
  report.recovered = true;
  report.recovery =
      source.scratch
          ? "An earlier run was interrupted. This dry run starts from what finishing it will give; "
            "any run that is not dry, analyze included, finishes it."
          : "An earlier run was interrupted; its work was made whole: " + finding.detail;
}

ImageSource LocateForRecovery(const std::string& path, const OpenOptions& options) try {
  return LocateVolume(path, options, true);
} catch (const VolumeRefused& refused) {
  throw VolumeRefused("An interrupted run must be finished before " + path +
                      " can be read, which needs writing. " + refused.what());
}

}  // namespace

std::unique_ptr<MountedVolume> OpenImage(const std::string& path, const OpenOptions& options,
                                         OpenReport& report) {
  report = {};
  const bool to_disk = options.writable && !options.dry_run;
  ImageSource source = LocateVolume(path, options, to_disk);
  if (options.dry_run) source.scratch = std::make_shared<ScratchDevice>(source.file);
  if (FileJournalHome(source.journal_path).Exists()) {
    const bool reopen = !to_disk && !options.dry_run;
    if (reopen) {
      source.file.reset();  // our own read lock would keep us out
      source = LocateForRecovery(path, options);
    }
    RecoverVolume(source, report);
    if (reopen) {
      source.file.reset();
      source = LocateVolume(path, options, false);
    }
  }
  if (to_disk) PrepareJournalFolder(source);
  VolumeStore store = MakeStore(source, options.writable);
  store.allow_dirty = options.allow_dirty;
  store.only_looking = !to_disk;
  store.drop_restore_points = options.drop_restore_points;
  std::unique_ptr<ImageVolume> volume = OpenFileSystem(source, std::move(store));
  report.objections = volume->Objections();
  return volume;
}

}  // namespace vornalux
