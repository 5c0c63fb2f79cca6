// SPDX-License-Identifier: GPL-2.0-or-later
// FAT volumes made by mkfs.fat and mtools, and judged by fsck.fat and mtools.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "host/image/fat/fat_geometry.h"
#include "host/image/fat/fat_table.h"
#include "support/devices.h"

namespace vornalux::test {

struct FatRecipe {
  const char* label;  // what a failing test is called by
  int bits;
  int kibibytes;
  int sector_size = 512;
  int cluster_sectors = 1;
  unsigned copies = 2;
  bool mirrored = true;  // FAT32: else only the last copy is in use, and the first is rubbish
};

inline void PrintTo(const FatRecipe& recipe, std::ostream* out) { *out << recipe.label; }

// A folder for one test's files, removed at the end.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  // Runs a shell command in the folder and returns what it prints; throws when it fails.
  std::string Run(const std::string& command) const;
  void Put(const std::string& name, const Bytes& content) const;
  Bytes Get(const std::string& name) const;

 private:
  std::filesystem::path folder_;
};

// Makes an empty volume as the file "image".
void MakeFat(const Scratch& scratch, const FatRecipe& recipe);

// A small volume: \A.TXT (1536 bytes), \B.TXT (513), \EMPTY.TXT, \DIR\C.TXT (999), \DIR\SUB\D.TXT.
Bytes SmallFat(int bits);

// A volume in memory, sound at first.
class FatWorld {
 public:
  explicit FatWorld(Bytes image);

  std::unique_ptr<ImageVolume> Open(bool recovering = false, BlockDevice* instead = nullptr);
  // Why it is not opened; empty when it is.
  std::string Refusal();
  // What fsck.fat has to say against it.
  std::string FsckComplaint();

  Bytes& Image() { return device.Content(); }
  std::uint32_t Entry(std::uint32_t cluster) const { return table.Get(cluster); }
  void SetEntry(std::uint32_t cluster, std::uint32_t value);
  // Offset of the first 32-byte entry with this short name ("A       TXT").
  std::size_t Find(const std::string& name);
  std::uint32_t Start(const std::string& name);
  void SetStart(std::size_t entry, std::uint32_t cluster);

  MemoryDevice device;
  MemoryJournal journal;
  FatGeometry geometry;
  FatTable table;
};

// A volume with folders, fragmented files, lost and bad clusters, and what it should hold.
class FatPopulation {
 public:
  FatPopulation(const FatRecipe& recipe, std::uint64_t seed);

  FatWorld& World() { return *world_; }
  // Everything wrong with the volume, which is closed.
  std::vector<std::string> Judge();

 private:
  void Fill(std::uint64_t seed);
  void Plant();
  std::string JudgeOutside() const;
  std::string JudgePlanted(Bytes image) const;

  FatRecipe recipe_;
  Scratch scratch_;
  std::string listing_;
  Bytes before_;
  std::unique_ptr<FatWorld> world_;
  std::uint32_t planted_ = 0;  // two lost clusters in a chain, and a bad one
};

}  // namespace vornalux::test
