// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/image/device/scratch_device.h"
#include "host/image/opening/boot_sector.h"
#include "host/image/opening/file_device.h"
#include "host/image/opening/open_options.h"
#include "host/image/volume/refused.h"
#include "host/image/volume/volume_store.h"

namespace vornalux {

// A volume found in an image file or on a block device, which is open and locked against others.
struct ImageSource {
  std::string path;  // links resolved
  std::shared_ptr<FileDevice> file;
  std::shared_ptr<ScratchDevice> scratch;  // over the file, for a dry run; else null
  std::uint64_t offset = 0;                // bytes, of the volume
  std::uint64_t length = 0;                // bytes, of the volume
  BootSector boot;
  VolumeIdentity identity;
  std::string journal_path;
};

// Opens and locks the image, for writing or for reading, and finds the volume that the options
// name. Throws VolumeRefused.
ImageSource LocateVolume(const std::string& path, const OpenOptions& options, bool writable);

// sysfs is the root of the kernel's file system of that name.
VolumePlace PlaceOf(const ImageSource& source, const std::string& sysfs = "/sys");

// To be asked again before anything that relies on it: throws VolumeRefused when another file lies
// in the image's place by now, it was mounted or attached, has another size, or another volume
// begins where this one did.
void RefuseChanged(const ImageSource& source);

// What a file system is opened on: the scratch device where there is one, else the file. Without a
// journal home as yet, and so for reading only.
VolumeStore MakeStore(const ImageSource& source);

// Makes a new journal, before anything depends on it. Throws VolumeRefused when there can be none.
std::unique_ptr<JournalHome> MakeJournal(const ImageSource& source);

}  // namespace vornalux
