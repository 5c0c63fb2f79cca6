// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/fat/fat_image.h"

#include <algorithm>
#include <stdexcept>

#include "host/image/device/little_endian.h"
#include "host/image/fat/fat_volume.h"
#include "host/image/volume/refused.h"
#include "support/image_folder.h"

namespace vornalux::test {
namespace {

// mtools takes a volume with so few clusters for another FAT, but those who mount it do not: made
// with more sectors, then cut.
void CutFat32(Bytes& image, std::uint32_t sectors) {
  constexpr std::size_t kTotal = 0x20, kFreeCount = 512 + 488, kBackup = 3072;
  const auto removed = static_cast<std::uint32_t>(image.size() / 512) - sectors;
  StoreLittle(image, kTotal, sectors);
  StoreLittle(image, kFreeCount, LoadLittle<std::uint32_t>(image, kFreeCount) - removed);
  image.resize(std::size_t{sectors} * 512);
  std::copy_n(image.begin(), 2 * 512, image.begin() + kBackup);
}

}  // namespace

Bytes SmallFat(int bits) {
  const ScratchFolder scratch;
  const int kibibytes = bits == 12 ? 1000 : bits == 16 ? 4500 : 34000;
  scratch.Run("mkfs.fat -C -s 1 -F " + std::to_string(bits) + " image " +
              std::to_string(kibibytes) +
              " && head -c 1536 /dev/zero > A.TXT && head -c 513 /dev/zero > B.TXT"
              " && head -c 999 /dev/zero > C.TXT && > EMPTY.TXT && echo d > D.TXT"
              " && cp D.TXT 'long enough.txt'"
              " && mmd -i image ::/DIR ::/DIR/SUB && mcopy -i image A.TXT B.TXT EMPTY.TXT 'long "
              "enough.txt' ::/"
              " && mcopy -i image C.TXT ::/DIR && mcopy -i image D.TXT ::/DIR/SUB");
  Bytes image = scratch.Get("image");
  if (bits == 32) CutFat32(image, 3000);
  return image;
}

FatWorld::FatWorld(Bytes image)
    : device(std::move(image)), geometry(ReadFatGeometry(device)), table(device, geometry) {}

std::unique_ptr<ImageVolume> FatWorld::Open(BlockDevice* instead) {
  VolumeStore store;
  store.device = std::make_unique<BorrowedDevice>(instead != nullptr ? *instead : device);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal);
  return OpenFatVolume(std::move(store));
}

std::string FatWorld::Refusal() {
  try {
    Open();
  } catch (const VolumeRefused& refused) {
    return refused.what();
  }
  return "";
}

std::string FatWorld::FsckComplaint() {
  const ScratchFolder scratch;
  scratch.Put("judged", Image());
  scratch.Run("fsck.fat -n judged 2>few >found || cat few >>found");
  const Bytes output = scratch.Get("found");
  // Its version, and how many files and clusters there are. What it finds few is a warning.
  const bool good = std::count(output.begin(), output.end(), '\n') == 2;
  return good ? "" : std::string(output.begin(), output.end());
}

void FatWorld::SetEntry(std::uint32_t cluster, std::uint32_t value) {
  table.Set(cluster, value);
  table.Write(device, cluster, 1);
}

std::size_t FatWorld::Find(const std::string& name) {
  for (std::size_t at = geometry.fat_offset; at + 32 <= Image().size(); at += 32) {
    if (std::equal(name.begin(), name.end(), &Image()[at])) return at;
  }
  throw std::runtime_error("no entry " + name);
}

std::uint32_t FatWorld::Start(const std::string& name) {
  return LoadLittle<std::uint16_t>(Image(), Find(name) + 26);
}

void FatWorld::SetStart(std::size_t entry, std::uint32_t cluster) {
  StoreLittle(Image(), entry + 26, static_cast<std::uint16_t>(cluster));
  if (geometry.type == FatType::Fat32) {
    StoreLittle(Image(), entry + 20, static_cast<std::uint16_t>(cluster >> 16));
  }
}

}  // namespace vornalux::test
