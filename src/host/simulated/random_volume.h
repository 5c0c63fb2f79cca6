// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>

#include "host/simulated/simulated_volume.h"

namespace vornalux {

// What a random volume holds. The shares are probabilities in [0, 1].
struct RandomVolumeOptions {
  SimulatedGeometry geometry = {};  // an empty MFT zone on NTFS becomes the volume's second eighth
  std::int64_t files = 100;
  std::int64_t folders = 10;
  double fill = 0.6;        // of the clusters
  double fragmented = 0.3;  // of the files and folders with clusters
  std::int64_t most_pieces = 8;
  double resident = 0.1;  // without clusters
  double with_holes = 0.05;
  double with_stream = 0.05;  // NTFS only
  double reparse = 0.01;
  double locked = 0.01;
  double immovable = 0.01;
  bool mft = true;  // NTFS only
};

// The same volume for the same options and seed on every machine.
std::unique_ptr<SimulatedVolume> MakeRandomVolume(const RandomVolumeOptions& options,
                                                  std::uint64_t seed);

}  // namespace vornalux
