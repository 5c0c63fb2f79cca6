// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/volume_table.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/image/opening/foreign_content.h"
#include "text/quantity_text.h"
#include "text/shell_text.h"

namespace vornalux {
namespace {

constexpr std::size_t kColumns = 7;
constexpr std::array<bool, kColumns> kToTheRight = {false, false, false, true, true, false, false};

using Row = std::array<std::string, kColumns>;

// What could not be looked at may be anything.
bool Shown(const ListedVolume& volume, bool all) {
  return all || volume.workable || (volume.file_system.empty() && !volume.unreadable.empty());
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

std::string Size(std::uint64_t bytes) { return ByteText(static_cast<std::int64_t>(bytes)); }

std::string Joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all;
}

std::size_t Width(const std::string& cell, Charset charset) {
  return static_cast<std::size_t>(DisplayWidth(cell, charset));
}

Row RowOf(const ListedVolume& volume, Charset charset) {
  std::string name = ShellQuoted(volume.path);
  if (volume.partition) name += " --partition " + std::to_string(*volume.partition);
  const char* const disk = !volume.rotational ? "-" : *volume.rotational ? "turns" : "solid-state";
  const std::string use = volume.mounted.empty() ? volume.in_use : Joined(volume.mounted);
  Row row = {
      name,
      OrDash(volume.unreadable.empty() || !volume.file_system.empty() ? volume.file_system : "?"),
      OrDash(volume.label),
      Size(volume.size),
      volume.free ? Size(*volume.free) : "-",
      disk,
      OrDash(use)};
  for (std::string& cell : row) cell = PrintableText(cell, charset);
  return row;
}

std::string Line(const Row& row, const std::array<std::size_t, kColumns>& widths, Charset charset) {
  std::string line;
  for (std::size_t i = 0; i < kColumns; ++i) {
    const std::string space(widths[i] - Width(row[i], charset), ' ');
    line += (i == 0 ? "" : "  ") + (kToTheRight[i] ? space + row[i] : row[i] + space);
  }
  return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

}  // namespace

std::string ToText(std::span<const ListedVolume> volumes, bool all, Charset charset) {
  std::vector<Row> rows = {
      {"Volume", "File system", "Label", "Size", "Free", "Disk", "Mounted or in use"}};
  std::string unreadable;
  std::int64_t others = 0;
  for (const ListedVolume& volume : volumes) {
    if (!Shown(volume, all)) {
      ++others;
      continue;
    }
    rows.push_back(RowOf(volume, charset));
    if (volume.unreadable.empty()) continue;
    unreadable +=
        "  " + PrintableText(volume.path + "  (" + volume.unreadable + ")", charset) + "\n";
  }
  std::string text;
  if (rows.size() > 1) {
    std::array<std::size_t, kColumns> widths{};
    for (const Row& row : rows) {
      for (std::size_t i = 0; i < kColumns; ++i) {
        widths[i] = std::max(widths[i], Width(row[i], charset));
      }
    }
    for (const Row& row : rows) text += Line(row, widths, charset);
  } else {
    text = "There is no NTFS or FAT volume here.\n";
  }
  if (!unreadable.empty()) {
    text += "\nCould not be looked at:\n" + unreadable;
  }
  if (others > 0) {
    text += "\n" + Grouped(others) + (others == 1 ? " other is" : " others are") +
            " not NTFS or FAT; --all lists " + (others == 1 ? "it" : "them") + " as well.\n";
  }
  return text;
}

std::string ToJson(std::span<const ListedVolume> volumes, bool all) {
  using Json = nlohmann::ordered_json;
  constexpr int kIndent = 2;
  Json json = {{"volumes", Json::array()}};
  std::int64_t others = 0;
  for (const ListedVolume& volume : volumes) {
    if (!Shown(volume, all)) {
      ++others;
      continue;
    }
    const auto text = [](const std::string& value) {
      return value.empty() ? Json(nullptr) : Json(value);
    };
    json["volumes"].push_back(
        {{"path", volume.path},
         {"partition", volume.partition ? Json(*volume.partition) : Json(nullptr)},
         {"offset", volume.offset},
         {"bytes", volume.size},
         {"file_system", text(volume.file_system)},
         {"workable", volume.workable},
         {"label", text(volume.label)},
         {"uuid", text(volume.uuid)},
         {"free_bytes", volume.free ? Json(*volume.free) : Json(nullptr)},
         {"rotational", volume.rotational ? Json(*volume.rotational) : Json(nullptr)},
         {"mounted", volume.mounted},
         {"in_use", text(volume.in_use)},
         {"unreadable", text(volume.unreadable)}});
  }
  json["others"] = others;
  return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace vornalux
