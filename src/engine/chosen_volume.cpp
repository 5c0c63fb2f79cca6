// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/chosen_volume.h"

#include "text/ascii_case.h"

namespace vornalux {
namespace {

// Labels and free space change while a volume stays the same.
bool IsSameVolume(const DriveFacts& a, const DriveFacts& b) {
  return a.answers && b.answers && a.names.serial == b.names.serial &&
         a.names.file_system == b.names.file_system &&
         a.space.total_clusters == b.space.total_clusters &&
         a.space.sectors_per_cluster == b.space.sectors_per_cluster;
}

}  // namespace

bool ChosenVolume::Choose(const std::string& root, const std::string& folder,
                          const char* without_answer) {
  DriveFacts facts = ReadDriveFacts(platform_, root);
  const bool same = EqualIgnoringAsciiCase(target_.drive, root) && target_.directory == folder &&
                    IsSameVolume(facts_, facts);
  geometry_.CloseVolume(geometry_.VolumeHandle);
  if (!same) Forget();
  without_answer_ = without_answer;
  target_.drive = root;
  target_.directory = folder;
  target_.file_system = facts.answers ? facts.names.file_system : without_answer;
  facts_ = std::move(facts);
  geometry_.SelectVolume(target_.Drive());
  Tell(same ? Change::Known : Change::Forgotten);
  return IsOpen();
}

bool ChosenVolume::Reopen() {
  const RunTarget target = target_;
  return Choose(target.drive, target.directory, without_answer_);
}

void ChosenVolume::Close() {
  geometry_.CloseVolume(geometry_.VolumeHandle);
  Tell(Change::Known);
}

void ChosenVolume::Forget() {
  flags_.AnalysisValid = False;
  flags_.ClassListsValid = False;
  geometry_.constants = {};
  table_.Clear();
  analysis_.lists.Clear();
  analysis_.summary = {};
}

void ChosenVolume::Tell(Change change) const {
  for (const Watcher& watcher : watchers_) watcher(change);
}

}  // namespace vornalux
