// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vornalux {

struct CheckOptions {
  std::uint64_t offset = 0;  // of the volume inside the source, bytes
  bool hash = false;         // read all content and fill in CheckedItem::sha256
  std::size_t max_problems = 1000;
};

// count clusters from vcn on lie at lcn, or nowhere (a hole: lcn -1). On FAT, LCN 0 is cluster 2.
struct CheckedExtent {
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;

  friend bool operator==(const CheckedExtent&, const CheckedExtent&) = default;
};

// One stream under one name: the data of a file, a named stream, or a folder's own clusters.
struct CheckedItem {
  std::string path;        // from the root: "/folder/file", UTF-8 (WTF-8 for unpaired surrogates)
  std::string stream;      // name of a named data stream, else empty
  bool is_folder = false;  // of the item; a folder's named stream has it too
  bool compressed = false;
  bool sparse = false;
  bool resident = false;   // NTFS: the bytes lie in the file record
  std::uint64_t id = 0;    // NTFS: number of the file record (equal for hard links)
  std::uint64_t size = 0;  // bytes of content; of a folder: bytes allocated
  std::uint32_t attributes = 0;
  std::vector<CheckedExtent> extents;  // in VCN order, adjoining ones joined, holes included
  std::string sha256;                  // of the content (decompressed, holes as zeros), when asked

  // Runs with clusters of their own, those that adjoin on disk across a hole counted apart.
  std::size_t Fragments() const;
};

// What a checker found. problems is empty for a volume whose structure is right in every respect
// that the checker knows. The dirty flag is no problem by itself.
struct CheckReport {
  std::string file_system;  // "NTFS", "FAT12", "FAT16", "FAT32"; empty: neither
  std::vector<std::string> problems;
  bool dirty = false;

  std::uint32_t cluster_size = 0;  // bytes
  std::int64_t clusters = 0;       // whole clusters of the volume (LCN 0 up)
  std::int64_t clusters_used = 0;  // owned by some item or metafile, or bad
  std::int64_t clusters_bad = 0;
  std::int64_t files = 0;               // names of files: a file with two hard links counts twice
  std::int64_t folders = 0;             // without the root
  std::int64_t fragmented_streams = 0;  // entries of items with more than one fragment
  std::int64_t fragments = 0;           // of all entries of items together

  std::vector<CheckedItem> items;      // in order of path, then stream; without the root
  std::vector<CheckedItem> metafiles;  // NTFS: streams and index of records 0 to 15 and of $Extend;
                                       // FAT32: "/"

  bool Clean() const { return problems.empty(); }
  const CheckedItem* Find(const std::string& path, const std::string& stream = "") const;
  // The problems, one a line; empty when clean. For test messages.
  std::string ProblemText() const;
};

}  // namespace vornalux
