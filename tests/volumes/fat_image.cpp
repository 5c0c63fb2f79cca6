// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/fat_image.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "host/image/little_endian.h"
#include "host/image/refused.h"

namespace vornalux::test {
namespace {

constexpr std::uint32_t kPlanted = 3;
constexpr std::uint8_t kPlantedByte = 0x77;

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

std::string Fsck(const Scratch& scratch, const Bytes& image) {
  scratch.Put("judged", image);
  const std::string output = scratch.Run("fsck.fat -n judged 2>few || cat few");
  // Its version, and how many files and clusters there are. What it finds few is a warning.
  return std::count(output.begin(), output.end(), '\n') == 2 ? "" : output;
}

}  // namespace

Scratch::Scratch() {
  std::string name = (std::filesystem::temp_directory_path() / "vornalux-fat-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder");
  folder_ = name;
}

Scratch::~Scratch() { std::filesystem::remove_all(folder_); }

std::string Scratch::Run(const std::string& command) const {
  Put("script", Bytes(command.begin(), command.end()));
  const std::string whole = "cd " + folder_.string() +
                            " && LC_ALL=C.UTF-8 MTOOLS_SKIP_CHECK=1 PATH=$PATH:/usr/sbin:/sbin "
                            "sh -e script 2>&1";
  FILE* const pipe = popen(whole.c_str(), "r");
  std::string output;
  std::array<char, 4096> piece;
  while (const std::size_t got = fread(piece.data(), 1, piece.size(), pipe)) {
    output.append(piece.data(), got);
  }
  if (pclose(pipe) != 0) throw std::runtime_error(command.substr(0, 200) + " failed: " + output);
  return output;
}

void Scratch::Put(const std::string& name, const Bytes& content) const {
  std::ofstream(folder_ / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(content.data()), std::ssize(content));
}

Bytes Scratch::Get(const std::string& name) const {
  std::ifstream file(folder_ / name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void MakeFat(const Scratch& scratch, const FatRecipe& recipe) {
  scratch.Run("mkfs.fat -C -n VORNALUX -i 1234ABCD -F " + std::to_string(recipe.bits) + " -S " +
              std::to_string(recipe.sector_size) + " -s " + std::to_string(recipe.cluster_sectors) +
              " -f " + std::to_string(recipe.copies) + " image " +
              std::to_string(recipe.kibibytes));
}

Bytes SmallFat(int bits) {
  const Scratch scratch;
  MakeFat(scratch, {"", bits, bits == 12 ? 1000 : bits == 16 ? 4500 : 34000});
  scratch.Run(
      "head -c 1536 /dev/zero > A.TXT; head -c 513 /dev/zero > B.TXT; head -c 999 /dev/zero > C.TXT"
      "\n> EMPTY.TXT; echo d > D.TXT; mmd -i image ::/DIR ::/DIR/SUB"
      "\nmcopy -i image A.TXT B.TXT EMPTY.TXT ::/; mcopy -i image C.TXT ::/DIR"
      "\nmcopy -i image D.TXT ::/DIR/SUB");
  Bytes image = scratch.Get("image");
  if (bits == 32) CutFat32(image, 3000);
  return image;
}

FatWorld::FatWorld(Bytes image)
    : device(std::move(image)), geometry(ReadFatGeometry(device)), table(device, geometry) {}

std::unique_ptr<ImageVolume> FatWorld::Open(bool recovering, BlockDevice* instead) {
  VolumeStore store;
  store.device = std::make_unique<BorrowedDevice>(instead != nullptr ? *instead : device);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal);
  store.recovering = recovering;
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

std::string FatWorld::FsckComplaint() { return Fsck(Scratch(), Image()); }

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

FatPopulation::FatPopulation(const FatRecipe& recipe, std::uint64_t seed) : recipe_(recipe) {
  MakeFat(scratch_, recipe);
  Fill(seed);
  listing_ = scratch_.Run("mdir -i image -/ -a ::/");
  world_ = std::make_unique<FatWorld>(scratch_.Get("image"));
  Plant();
  if (!recipe.mirrored) {
    world_->Image()[0x28] = 0x81;
    std::fill_n(&world_->Image()[world_->geometry.fat_offset], world_->geometry.fat_size,
                std::uint8_t{0x5A});
  }
  before_ = world_->Image();
}

// Writing round the folders in turn and deleting every third file scatters files and folders.
void FatPopulation::Fill(std::uint64_t seed) {
  Random random(seed);
  scratch_.Run("mkdir -p want/two 'want/one/three/Four long'");
  std::string script = "mmd -i image ::/one ::/two ::/one/three '::/one/three/Four long'\n";
  // Half of the volume when all is done.
  const auto most = static_cast<std::uint64_t>(recipe_.kibibytes) * 1024 / 200;
  for (int round = 0; round < 5; ++round) {
    for (const std::string folder : {"", "one/", "two/", "one/three/", "one/three/Four long/"}) {
      std::string made;
      std::string deleted;
      for (int i = 0; i < 12; ++i) {
        std::string path = folder;
        path += i % 4 == 0 ? "F" : "a file with a long name ";
        path += std::to_string(round * 12 + i) + ".dat";
        Bytes content(Below(random, i == 4 ? 2 : most));
        for (std::uint8_t& byte : content) byte = static_cast<std::uint8_t>(random());
        scratch_.Put("want/" + path, content);
        made.append(" 'want/").append(path).append("'");
        if (i % 3 == 2) deleted.append(" '").append(path).append("'");
      }
      script.append("mcopy -i image").append(made).append(" '::/").append(folder).append("'\n");
      script.append("mdel -i image").append(deleted).append("\n");
      script.append("(cd want; rm").append(deleted).append(")\n");
    }
  }
  scratch_.Run(script);
}

void FatPopulation::Plant() {
  FatWorld& world = *world_;
  planted_ = world.geometry.clusters / 2;
  while (world.Entry(planted_) + world.Entry(planted_ + 1) + world.Entry(planted_ + 2) != 0) {
    ++planted_;
  }
  world.SetEntry(planted_, planted_ + 1);
  world.SetEntry(planted_ + 1, world.table.Bad() + 8);
  world.SetEntry(planted_ + 2, world.table.Bad());
  for (std::uint32_t i = 0; i < kPlanted; ++i) {
    world.Image()[world.geometry.ClusterOffset(planted_ + i)] = kPlantedByte;
  }
  if (recipe_.bits != 32) return;
  // The upper four bits belong to nobody.
  for (std::uint64_t at = world.geometry.EntryBytes(3) - 1; at < world.geometry.fat_size; at += 4) {
    world.Image()[world.geometry.CopyOffset(0) + at] |= 0x50;
    world.Image()[world.geometry.CopyOffset(1) + at] |= 0x50;
  }
}

// The first difference in what no move has any business with.
std::string FatPopulation::JudgeOutside() const {
  const FatGeometry& geometry = world_->geometry;
  const Bytes& after = world_->Image();
  for (std::uint64_t at = 0; at < geometry.data_offset; ++at) {
    if (after[at] == before_[at]) continue;
    const std::uint64_t in_copy = (at - geometry.fat_offset) % geometry.fat_size;
    const bool in_fat =
        at >= geometry.fat_offset && at < geometry.fat_offset + recipe_.copies * geometry.fat_size;
    const bool unused_copy = !recipe_.mirrored && at < geometry.fat_offset + geometry.fat_size;
    const bool upper_bits =
        recipe_.bits == 32 && at % 4 == 3 && ((after[at] ^ before_[at]) >> 4) != 0;
    const bool entry = !upper_bits && in_copy >= geometry.EntryBytes(2) && !unused_copy &&
                       in_copy < geometry.EntryBytes(geometry.EndCluster());
    const bool start = at % 32 == 26 || at % 32 == 27;
    const bool may_change = in_fat ? entry : at >= geometry.root_offset && start;
    if (!may_change) return "byte " + std::to_string(at) + " before the data area changed";
  }
  return "";
}

std::string FatPopulation::JudgePlanted(Bytes image) const {
  FatWorld found(std::move(image));
  for (std::uint32_t i = 0; i < kPlanted; ++i) {
    const bool entry = found.Entry(planted_ + i) == world_->Entry(planted_ + i);
    const bool byte = found.Image()[found.geometry.ClusterOffset(planted_ + i)] == kPlantedByte;
    if (!entry || !byte) return "lost or bad clusters changed";
    found.SetEntry(planted_ + i, 0);
  }
  return Fsck(scratch_, found.Image());
}

std::vector<std::string> FatPopulation::Judge() {
  Bytes image = world_->Image();
  if (!recipe_.mirrored) {
    // The tools look at the first copy only.
    const FatGeometry& geometry = world_->geometry;
    image[0x28] = 0;
    std::copy_n(&image[geometry.fat_offset + geometry.fat_size], geometry.fat_size,
                &image[geometry.fat_offset]);
  }
  std::vector<std::string> faults = {JudgeOutside(), JudgePlanted(std::move(image))};
  if (scratch_.Run("mdir -i judged -/ -a ::/") != listing_) faults.push_back("another listing");
  faults.push_back(scratch_.Run(
      "rm -rf got; mkdir got; mcopy -s -i judged '::/*' got; diff -r want got || true"));
  std::erase(faults, "");
  return faults;
}

}  // namespace vornalux::test
