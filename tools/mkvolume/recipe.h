// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vornalux {

enum class VolumeKind { Ntfs, Fat12, Fat16, Fat32 };

// What a made volume is like. The same recipe (seed included) gives the same tree, content and
// places of clusters. Written as one line of text:
//   ntfs size=512M cluster=4096 files=5000 folders=200 fragmented=50% pieces=12 fill=60% seed=1
// Shares are 0 to 1 here and percentages in the text.
struct Recipe {
  VolumeKind kind = VolumeKind::Ntfs;
  std::uint64_t size = 64ULL << 20;  // bytes of the volume
  std::uint32_t cluster = 0;         // bytes; 0: what suits the size
  std::uint32_t sector = 512;        // bytes
  std::uint64_t seed = 1;

  std::int64_t files = 500;           // names of files, hard links and big ones not counted
  std::int64_t folders = 40;          // besides those that windows and crowd add
  std::int64_t crowd = 0;             // this many of the files lie in one folder
  double fill = 0;                    // share of all clusters in use; 0: as the natural sizes give
  std::int64_t big = 0;               // additional files of a few percent of the volume each
  double fragmented = 0.2;            // share of files with two clusters or more that get pieces
  double fragmented_folders = 0.2;    // the same of folders
  int pieces = 6;                     // mean extents of a fragmented file (at least 2)
  std::int64_t shredded = 0;          // additional files ...
  std::int64_t shredded_extents = 0;  // ... of this many extents each, of one or two clusters
  bool windows = false;     // Windows/Prefetch with *.pf and a layout.ini that names existing files
  std::string drive = "C";  // letter that layout.ini's paths begin with
  double odd_names = 0.1;   // share of long, non-ASCII and otherwise odd names

  // NTFS only.
  double streams = 0;     // share of files with named streams
  double sparse = 0;      // share of files with holes
  double compressed = 0;  // share of compressed files (clusters up to 4096 bytes)
  double links = 0;       // share of files with a second name
  double dos_names = 0;   // share of files with a DOS-only name beside the long one
  int mft_pieces = 1;     // extents of $MFT

  // FAT only.
  double deleted = 0;    // deleted entries as a share of files
  std::int64_t bad = 0;  // clusters marked bad

  // Makes a disk image with a partition table and the volume as its first partition, at 1 MiB.
  bool partitioned = false;

  bool IsNtfs() const { return kind == VolumeKind::Ntfs; }

  // Throws std::invalid_argument that names the word and what is wrong with it.
  static Recipe Parse(std::string_view text);
  // Throws std::invalid_argument for values that no volume can have; Parse() calls it.
  void Validate() const;
  // Everything that differs from the default, the seed always; Parse() gives the same recipe back.
  std::string Text() const;
};

}  // namespace vornalux
