// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/maker.h"

#include <unistd.h>

#include <array>
#include <stdexcept>

#include "mkvolume/image.h"
#include "mkvolume/volume_makers.h"

namespace vornalux {
namespace making {
namespace {

constexpr std::uint64_t kPartitionStart = 1U << 20;

Manifest MakeInFile(const Recipe& recipe, const std::string& path) {
  return recipe.IsNtfs() ? MakeNtfs(recipe, path) : MakeFat(recipe, path);
}

void Put32(std::span<std::uint8_t> bytes, std::size_t at, std::uint64_t value) {
  for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// A file system keeps in its boot sector how many sectors lie before it on the disk.
void SetSectorsBefore(Image& image, const Recipe& recipe) {
  std::array<std::uint8_t, 4> count{};
  Put32(count, 0, kPartitionStart / recipe.sector);
  image.Write(28, count);
  if (recipe.IsNtfs())
    image.Write(recipe.size / recipe.sector * recipe.sector - recipe.sector + 28, count);
  if (recipe.kind == VolumeKind::Fat32) image.Write(6 * recipe.sector + 28, count);
}

Manifest MakePartitioned(const Recipe& recipe, const std::string& path) {
  const std::string volume_path = path + ".volume";
  struct Removal {
    const std::string& path;
    ~Removal() { unlink(path.c_str()); }
  } removal{volume_path};
  Manifest manifest = MakeInFile(recipe, volume_path);
  Image volume = Image::Open(volume_path);
  SetSectorsBefore(volume, recipe);

  Image disk = Image::Create(path, kPartitionStart + recipe.size);
  std::array<std::uint8_t, 512> table{};
  table[446 + 4] = recipe.IsNtfs() ? 0x07 : recipe.kind == VolumeKind::Fat32 ? 0x0C : 0x0E;
  Put32(table, 446 + 8, kPartitionStart / recipe.sector);
  Put32(table, 446 + 12, recipe.size / recipe.sector);
  table[510] = 0x55;
  table[511] = 0xAA;
  disk.Write(0, table);
  CopySparse(volume, disk, kPartitionStart);
  return manifest;
}

}  // namespace
}  // namespace making

Manifest MakeVolume(const Recipe& recipe, const std::string& image_path) {
  recipe.Validate();
  try {
    Manifest manifest = recipe.partitioned ? making::MakePartitioned(recipe, image_path)
                                           : making::MakeInFile(recipe, image_path);
    manifest.header = {"recipe " + recipe.Text()};
    return manifest;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(std::string(error.what()) + " (recipe " + recipe.Text() + ")");
  }
}

Manifest MakeVolume(const std::string& recipe, const std::string& image_path) {
  return MakeVolume(Recipe::Parse(recipe), image_path);
}

}  // namespace vornalux
