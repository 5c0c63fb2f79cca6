// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/analysis_details.h"

#include <algorithm>
#include <tuple>

#include "engine/pass_table.h"
#include "text/ascii_case.h"

namespace vornalux {

ExtensionTable::ExtensionTable(Engine& engine) : engine_(engine) {
  engine.walk.FileSeen = [this](const std::string& path, const ExtentRecord& seen) {
    Count(path, seen);
  };
}

ExtensionTable::~ExtensionTable() { engine_.walk.FileSeen = nullptr; }

void ExtensionTable::Count(const std::string& path, const ExtentRecord& seen) {
  std::string extension = ExtensionOf(path);
  ExtensionRow& row = rows_[extension];
  row.extension = std::move(extension);
  ++row.files;
  // Of many extents the walk has seen the first ones only.
  const ExtentRecord record =
      seen.Fragmented() ? engine_.extents.ReadExtents(path, false, false) : seen;
  record.EachRun(0, record.SizeInClusters(),
                 [&row](std::int64_t, std::int64_t count) { row.clusters += count; });
  const RunTarget& target = engine_.volume.Target();
  const std::int64_t pieces = CountFragments(record.extents, target.Ntfs());
  if (pieces <= 1 || !record.opened || !IncludedBy(target.exclude, path)) return;
  ++row.fragmented;
  row.pieces += pieces;
}

std::vector<ExtensionRow> ExtensionTable::Rows() const {
  std::vector<ExtensionRow> rows;
  for (const auto& [extension, row] : rows_) rows.push_back(row);
  std::ranges::stable_sort(rows, [](const ExtensionRow& a, const ExtensionRow& b) {
    return std::tie(b.clusters, b.files) < std::tie(a.clusters, a.files);
  });
  return rows;
}

std::string ExtensionOf(const std::string& path) {
  const std::size_t name = path.rfind('\\') + 1;
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot <= name || dot + 1 == path.size()) return "";
  std::string extension = path.substr(dot + 1);
  for (char& letter : extension) letter = LowerCase(letter);
  return extension;
}

std::string PassGain::Name() const {
  return std::string(RowOf(pass).command) + (thorough ? " --thorough" : "");
}

std::vector<ExtensionRow> FirstRows(std::span<const ExtensionRow> rows, std::size_t count) {
  const std::size_t shown = std::min(rows.size(), count);
  std::vector<ExtensionRow> first(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown));
  if (shown == rows.size()) return first;
  ExtensionRow& others = first.emplace_back();
  others.extension = "(others)";
  for (const ExtensionRow& row : rows.subspan(shown)) {
    others.files += row.files;
    others.clusters += row.clusters;
    others.fragmented += row.fragmented;
    others.pieces += row.pieces;
  }
  return first;
}

}  // namespace vornalux
