// SPDX-License-Identifier: GPL-2.0-or-later
#include "play/imaginary_machine.h"

#include <cstdio>
#include <stdexcept>

#include "host/image/fat/fat_volume.h"
#include "host/image/journal/scratch_journal.h"
#include "host/windows/system_headers.h"
#include "play/session.h"

namespace vornalux::play {
namespace {

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::fseek(file.get(), 0, SEEK_END);
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::ftell(file.get())));
  std::rewind(file.get());
  if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
    throw std::runtime_error("cannot read all of " + path);
  }
  return bytes;
}

std::unique_ptr<SimulatedVolume> Volume(std::int64_t clusters, const char* file_system,
                                        const char* label, std::int64_t files, bool dirty) {
  RandomVolumeOptions options;
  options.geometry.total_clusters = clusters;
  options.geometry.file_system = file_system;
  options.geometry.label = label;
  options.geometry.dirty = dirty;
  options.files = files;
  options.folders = files / 10;
  return MakeRandomVolume(options, 7);
}

}  // namespace

// The seed is the one that the program makes from the counters that it is shown.
ImaginaryMachine::ImaginaryMachine(const std::string& fat_image)
    : platform_(std::make_unique<SimulatedPlatform>(MachineSettings{
          .windows_folder = "C:\\Windows", .seed = SeedOfTheProgram(), .power_off = {}})),
      a_(Volume(2847, "FAT", "FLOPPY", 10, false)),
      c_(Volume(262144, "NTFS", "System", 300, false)),
      r_(Volume(16384, "NTFS", "Archive", 20, true)) {
  auto device = std::make_unique<ScratchDevice>(nullptr, true);
  const std::vector<std::uint8_t> image = ReadFile(fat_image);
  image_size_ = image.size();
  if (device->Write(0, image)) throw std::runtime_error("no room for " + fat_image);
  VolumeStore store;
  store.device = std::move(device);
  store.journal_home = std::make_unique<ScratchJournalHome>();
  d_ = OpenFatVolume(std::move(store));

  platform_->AddDrive('A', drive_type::kRemovable);
  platform_->AddDrive('D', drive_type::kFixed);
  platform_->AddDrive('E', drive_type::kCdRom);
  platform_->AddDrive('F', drive_type::kNetwork);
  platform_->AddVolume('A', *a_);
  platform_->AddVolume('C', *c_);
  platform_->AddVolume('R', *r_);
  platform_->Mount('D', *d_);
  platform_->UseFatDriver();
  platform_->Log().SetRecording(false);
}

std::vector<std::uint8_t> ImaginaryMachine::ImageOfD() {
  std::vector<std::uint8_t> image(image_size_);
  if (d_->ReadDevice(0, image) != error::kSuccess) throw std::runtime_error("D: cannot be read");
  return image;
}

}  // namespace vornalux::play
