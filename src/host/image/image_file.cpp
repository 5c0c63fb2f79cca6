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

JournalFinding FinishCommit(const ImageSource& source, const VolumeStore& store) {
  std::unique_ptr<BlockDevice> file;
  if (const std::error_code error = store.journal_home->Open(file)) {
    RefuseJournal(source, "cannot be opened: " + error.message());
  }
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
  report.recovery = "An earlier run was interrupted; its work was made whole: " + finding.detail;
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
  ImageSource source = LocateVolume(path, options, options.writable);
  if (FileJournalHome(source.journal_path).Exists()) {
    if (!options.writable) {
      source.file.reset();  // our own read lock would keep us out
      source = LocateForRecovery(path, options);
    }
    RecoverVolume(source, report);
    if (!options.writable) {
      source.file.reset();
      source = LocateVolume(path, options, false);
    }
  }
  if (options.writable) PrepareJournalFolder(source);
  VolumeStore store = MakeStore(source, options.writable);
  store.allow_dirty = options.allow_dirty;
  return OpenFileSystem(source, std::move(store));
}

}  // namespace vornalux
