// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/finish_run.h"

#include <utility>

#include "host/image/device/scratch_device.h"
#include "host/image/journal/scratch_journal.h"

namespace vornalux {

std::string FinishRunAtOnce(const RunToFinish& run) {
  VolumeStore store = run.store();
  std::shared_ptr<BlockDevice> file;
  if (const std::error_code error = run.home->Open(file)) run.cannot(error.message());
  const JournalFinding finding = RedoJournal(*file, *store.device).Recover(store.identity);
  file.reset();
  if (finding.error) run.cannot(finding.error.message());
  if (finding.state != JournalState::Idle && finding.state != JournalState::Replayed) {
    run.cannot(finding.detail);
  }
  store.journal_home = run.home;
  store.recovering = true;
  const std::unique_ptr<ImageVolume> volume = run.open(std::move(store));
  if (const ErrorCode code = volume->Recover()) {
    run.cannot("error " + std::to_string(code));
  }
  return finding.detail;
}

std::string FinishRun(const RunToFinish& run) {
  std::shared_ptr<BlockDevice> file;
  if (const std::error_code error = run.home->Open(file)) run.cannot(error.message());
  RunToFinish trial = run;
  trial.home = std::make_shared<ScratchJournalHome>(std::move(file));
  trial.store = [&run] {
    VolumeStore store = run.store();
    store.device = std::make_unique<ScratchDevice>(std::move(store.device));
    return store;
  };
  FinishRunAtOnce(trial);
  trial = {};
  return FinishRunAtOnce(run);
}

}  // namespace vornalux
