// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace vornalux {

struct FragmentedFile {
  std::int64_t extents = 0;
  std::int64_t clusters = 0;
  std::string path;
};

// Files of one extension.
struct ExtensionRow {
  std::string extension;  // "jpg", in small letters; empty for none
  std::int64_t files = 0;
  std::int64_t clusters = 0;    // holes left out
  std::int64_t fragmented = 0;  // as the analysis counts it
  std::int64_t pieces = 0;      // of those
};

// Counts the files of an analysis by their extensions, as the walk comes to them.
class ExtensionTable {
 public:
  // Counts all that the engine analyses from now on, until it goes. The engine outlives it.
  explicit ExtensionTable(Engine& engine);
  ~ExtensionTable();
  ExtensionTable(const ExtensionTable&) = delete;
  ExtensionTable& operator=(const ExtensionTable&) = delete;

  // The most clusters first.
  std::vector<ExtensionRow> Rows() const;

 private:
  void Count(const std::string& path, const ExtentRecord& seen);

  Engine& engine_;
  std::map<std::string, ExtensionRow> rows_;
};

// "jpg" of "C:\\a\\b.JPG"; empty where the name has no dot, or only one in front.
std::string ExtensionOf(const std::string& path);

// What the volume would be like after a pass.
struct GainFigures {
  std::int64_t fragmented = 0;
  std::int64_t free_regions = 0;
  std::int64_t largest_gap = 0;     // clusters
  std::int64_t clusters_moved = 0;  // for it
};
struct PassGain {
  Pass pass = Pass::Defrag;
  bool thorough = false;
  std::optional<GainFigures> figures;  // missing where that was not worked out

  std::string Name() const;  // as one types it
};

// What an analysis tells besides the figures.
struct AnalysisDetails {
  std::vector<FragmentedFile> most_fragmented;
  std::vector<ExtensionRow> extensions;
  std::vector<PassGain> gains;              // empty where nobody asked
  std::optional<std::int64_t> largest_gap;  // now, clusters; known where a gain is
};

inline constexpr std::size_t kMostFragmentedShown = 10;
inline constexpr std::size_t kExtensionsShown = 12;

// The first so many rows, and all others as one with "(others)" in the place of its extension.
std::vector<ExtensionRow> FirstRows(std::span<const ExtensionRow> rows, std::size_t count);

}  // namespace vornalux
