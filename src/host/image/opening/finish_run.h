// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/image/volume/image_volume.h"

namespace vornalux {

// How the run is finished whose journal was found, and fits: what it needs of the volume.
struct RunToFinish {
  std::function<VolumeStore()> store;  // a new one at each call, without a journal home
  std::function<std::unique_ptr<ImageVolume>(VolumeStore)> open;
  std::shared_ptr<JournalHome> home;
  std::function<void(const std::string&)> cannot;  // is told why not, and throws VolumeRefused
};

// Finishes the commit in progress, proves the volume sound, takes its dirty mark away, durably, and
// then the journal. All of it is tried in memory first: a volume that would not come out sound is
// not written to. Returns what was done, for the user. Throws VolumeRefused.
std::string FinishRun(const RunToFinish& run);

// The same without that trial, where it is all in memory.
std::string FinishRunAtOnce(const RunToFinish& run);

}  // namespace vornalux
