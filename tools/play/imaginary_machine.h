// SPDX-License-Identifier: GPL-2.0-or-later
// The machine that the program under test believes to run on. Its drives are imaginary; what the
// program asks of the session is noted and goes nowhere.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/image/volume/image_volume.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/simulated_platform.h"

namespace vornalux::play {

// What the program was told to do with the notification area.
struct TrayCall {
  std::uint32_t message = 0;
  std::uint32_t record_size = 0;
  std::uint32_t id = 0;
  std::uint32_t flags = 0;
  std::uint32_t callback = 0;
  std::string tip;
  std::string balloon;
};

// A: removable, C: fixed and NTFS with 300 files, D: fixed and FAT, from an image file, E: a CD
// drive with nothing in it, F: network, R: fixed and dirty.
class ImaginaryMachine {
 public:
  // The image of drive D. Throws when it cannot be read.
  explicit ImaginaryMachine(const std::string& fat_image);

  // Drives alone, as the portable program takes them.
  SimulatedPlatform& Drives() { return *platform_; }
  SimulatedVolume& C() { return *c_; }
  ImageVolume& D() { return *d_; }
  // All bytes of drive D.
  std::vector<std::uint8_t> ImageOfD();

  // How the program finds its session.
  std::int32_t administrator = 1;
  bool windows_2000 = false;
  bool notification_area = true;
  std::string solid_state;  // letters of the drives that say so

  // What it asked of it.
  std::vector<TrayCall> tray;
  std::vector<std::uint64_t> session_ends;  // flags in the low half, reason in the high one
  std::vector<std::string> pages;           // opened in the browser

 private:
  std::unique_ptr<SimulatedPlatform> platform_;
  std::unique_ptr<SimulatedVolume> a_;
  std::unique_ptr<SimulatedVolume> c_;
  std::unique_ptr<SimulatedVolume> r_;
  std::unique_ptr<ImageVolume> d_;
  std::size_t image_size_ = 0;
};

}  // namespace vornalux::play
