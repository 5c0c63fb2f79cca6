// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "engine/analysis.h"
#include "engine/run_target.h"
#include "platform/platform.h"
#include "volume/drive_facts.h"
#include "volume/file_table.h"
#include "volume/run_flags.h"
#include "volume/volume_geometry.h"

namespace vornalux {

// The one volume that lists, jobs, runs and windows are about: which one it is, its open handle,
// and that what is known belongs to it. Whoever shows it watches; nobody else sets a piece of it.
class ChosenVolume {
 public:
  enum class Change {
    Known,      // another state of the same volume: opened, closed, its figures read anew
    Forgotten,  // what was known belonged to another volume, and is gone
  };
  using Watcher = std::function<void(Change)>;

  // All outlive this.
  ChosenVolume(Platform& platform, RunFlags& flags, VolumeGeometry& geometry, FileTable& table,
               Analysis& analysis)
      : platform_(platform),
        flags_(flags),
        geometry_(geometry),
        table_(table),
        analysis_(analysis) {}

  const RunTarget& Target() const { return target_; }
  // Of when it was chosen or opened last.
  const DriveFacts& Facts() const { return facts_; }
  bool IsChosen() const { return !target_.drive.empty(); }
  bool IsOpen() const { return geometry_.VolumeHandle != kInvalidHandle; }

  // Takes the volume with this root ("C:\"), or a folder on it, and opens it. without_answer stands
  // for the file system of a drive that does not answer. False: it could not be opened; it is the
  // chosen one all the same.
  bool Choose(const std::string& root, const std::string& folder, const char* without_answer);

  // Opens the chosen volume anew. Another medium in the same drive is another volume.
  bool Reopen();
  // Until it is opened or another one is chosen.
  void Close();

  // Extensions that Defrag leaves alone, whatever the volume. What was analysed with others has to
  // be analysed anew.
  void SetExclude(const std::string& extensions) {
    if (extensions != target_.exclude) flags_.AnalysisValid = False;
    target_.exclude = extensions;
  }

  // Files with their full paths, spelled as a walk would: all that analyses and passes are about
  // from now on, of whatever volume is chosen. None: everything.
  void SetFiles(std::vector<std::string> files) {
    flags_.AnalysisValid = False;
    target_.files = std::move(files);
  }

  // Called after every change, in the order of watching.
  void Watch(Watcher watcher) { watchers_.push_back(std::move(watcher)); }

 private:
  void Forget();
  void Tell(Change change) const;

  Platform& platform_;
  RunFlags& flags_;
  VolumeGeometry& geometry_;
  FileTable& table_;
  Analysis& analysis_;
  RunTarget target_;
  DriveFacts facts_;
  const char* without_answer_ = "";
  std::vector<Watcher> watchers_;
};

}  // namespace vornalux
