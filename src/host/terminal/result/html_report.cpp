// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/html_report.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "engine/summary_text.h"
#include "host/terminal/display/display_text.h"
#include "text/quantity_text.h"

namespace vornalux {
namespace {

constexpr std::size_t kMostRows = 2000;

constexpr const char* kStyle = R"(
:root { color-scheme: light dark; --ink: #1d2630; --paper: #ffffff; --line: #d7dde3; --dim: #5d6975;
        --shade: #f3f5f7; --good: #17692f; --bad: #a32020; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #d2dce5; --paper: #0f1520; --line: #2b3644; --dim: #8f9cab; --shade: #161e2b;
          --good: #7fd39a; --bad: #f09a9a; }
}
body { font: 15px/1.5 system-ui, sans-serif; color: var(--ink); background: var(--paper);
       max-width: 72rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.6rem; margin: 0; } h2 { font-size: 1.15rem; margin: 2rem 0 .5rem; }
section + section { border-top: 3px solid var(--line); margin-top: 3rem; padding-top: 2rem; }
p.sub { color: var(--dim); margin: .2rem 0; overflow-wrap: anywhere; }
img { max-width: 100%; display: block; margin: .3rem 0 1rem; }
.maps { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(28rem, 100%), 1fr));
        gap: 0 1.5rem; }
table { border-collapse: collapse; width: 100%; }
thead { background: var(--shade); }
th, td { text-align: left; padding: .25rem .6rem; border-bottom: 1px solid var(--line);
         overflow-wrap: anywhere; vertical-align: top; }
th:not(.n), td:not(.n) { min-width: 5.5rem; }
th.n, td.n { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap;
             overflow-wrap: normal; }
@media (max-width: 44rem) {
  th, td { padding: .25rem .3rem; } th.n, td.n { white-space: normal; }
}
td.good { color: var(--good); } td.bad { color: var(--bad); }
figcaption { color: var(--dim); } figure { margin: 0; }
@media print {
  :root { color-scheme: light; --ink: #000; --paper: #fff; --line: #bbb; --dim: #444; --shade: #eee;
          --good: #000; --bad: #000; }
  body { max-width: none; margin: 0; padding: 0; font-size: 10pt; }
  thead { display: table-header-group; } tr, figure { break-inside: avoid; }
  h2 { break-after: avoid; } section + section { break-before: page; border: 0; }
  img, thead { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
)";

std::string Text(const std::string& text) {
  std::string out;
  for (const char c : PrintableText(text, Charset::Utf8)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string Base64(const std::vector<std::uint8_t>& bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (k < count ? bytes[i + k] : 0u);
    for (std::size_t k = 0; k < 4; ++k) {
      out += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return out;
}

std::string Row(const std::string& label, const std::string& first, const std::string& second,
                bool two_columns) {
  return "<tr><td>" + label + "</td><td class=n>" + first + "</td>" +
         (two_columns ? "<td class=n>" + second + "</td>" : "") + "</tr>\n";
}

// A heading for each column; those of numbers begin with "#".
std::string Head(std::initializer_list<std::string> columns) {
  std::string html = "<table><thead><tr>";
  for (const std::string& column : columns) {
    const bool number = column.starts_with('#');
    html += number ? "<th class=n>" + column.substr(1) : "<th>" + column;
    html += "</th>";
  }
  return html + "</tr></thead><tbody>\n";
}

constexpr const char* kEndOfTable = "</tbody></table>\n";
constexpr const char* kUnknown = "&ndash;";

// By how much a figure has changed, of which there ought to be few; 0 where that is as good.
std::string Change(std::optional<std::int64_t> before, std::optional<std::int64_t> after,
                   bool few) {
  if (!before || !after) return std::string("<td class=n>") + kUnknown + "</td>";
  const std::int64_t by = *after - *before;
  const char* const kind = !few || by == 0 ? "n" : by < 0 ? "\"n good\"" : "\"n bad\"";
  const std::string sign = by < 0 ? "&minus;" : by > 0 ? "+" : "";
  return std::string("<td class=") + kind + ">" + sign + Grouped(by < 0 ? -by : by) + "</td>";
}

// What the volume's geometry means for a pass, in clusters.
std::string ConstantRows(const ReportContent& report, bool both) {
  struct Constant {
    const char* label;
    std::int64_t AnalysisFigures::*first;
    std::int64_t AnalysisFigures::*end = nullptr;  // of a range
  };
  constexpr Constant kConstants[] = {
      {"Clusters", &AnalysisFigures::total_clusters},
      {"Sectors per cluster", &AnalysisFigures::sectors_per_cluster},
      {"Front kept for system files, up to cluster", &AnalysisFigures::reserved_front},
      {"Files are packed up to cluster", &AnalysisFigures::optimize_area},
      {"MFT zone, clusters", &AnalysisFigures::mft_zone_start, &AnalysisFigures::mft_zone_end}};
  std::string rows;
  for (const Constant& constant : kConstants) {
    const auto text = [&constant](const std::optional<AnalysisFigures>& figures) {
      if (!figures) return std::string(kUnknown);
      const std::string first = Grouped((*figures).*constant.first);
      if (constant.end == nullptr) return first;
      return first + " &ndash; " + Grouped((*figures).*constant.end);
    };
    rows += std::string("<tr><td>") + constant.label + "</td><td class=n>" + text(report.before) +
            "</td>";
    if (both) rows += "<td class=n>" + text(report.after) + "</td><td></td>";
    rows += "</tr>\n";
  }
  return rows;
}

std::string RegionRows(const RunSummary& summary) {
  const auto row = [&](const char* label, auto tell, const std::string& change) {
    const auto side = [&](const std::optional<FreeRegions>& regions) {
      return "<td class=n>" + (regions ? tell(*regions) : std::string(kUnknown)) + "</td>";
    };
    return std::string("<tr><td>") + label + "</td>" + side(summary.regions_before) +
           side(summary.regions_after) + change + "</tr>\n";
  };
  const auto count = [](const std::optional<FreeRegions>& regions) {
    return regions ? std::optional<std::int64_t>(regions->count) : std::nullopt;
  };
  return row(
             "Free regions", [](const FreeRegions& regions) { return Grouped(regions.count); },
             Change(count(summary.regions_before), count(summary.regions_after), true)) +
         row(
             "Largest gaps",
             [&](const FreeRegions& regions) { return SizesText(regions, summary.cluster_bytes); },
             "<td></td>");
}

// Numbers that a run is to make smaller.
bool FewAreGood(const FigureRow& row) {
  return row.figure == &AnalysisFigures::fragmented || row.figure == &AnalysisFigures::fragments ||
         row.figure == &AnalysisFigures::max_per_file;
}

std::string FigureTable(const ReportContent& report) {
  const bool both = report.moved.has_value();
  std::string html = both ? Head({"", "#before", "#after", "#change"}) : Head({"", "#now"});
  for (const FigureRow& row : FigureRows()) {
    if (row.of_classes && !(report.before && HasClasses(*report.before))) continue;
    const auto known = [&row](const std::optional<AnalysisFigures>& figures) {
      return figures && (!row.of_classes || figures->classes_known)
                 ? std::optional<std::int64_t>((*figures).*row.figure)
                 : std::nullopt;
    };
    const auto cells = [&](const std::optional<AnalysisFigures>& figures) {
      const std::optional<std::int64_t> number = known(figures);
      const std::string share = number ? ShareText(row, *figures) : "";
      return "<td class=n>" + (number ? Grouped(*number) : std::string(kUnknown)) +
             (share.empty() ? "" : " <small>(" + share + ")</small>") + "</td>";
    };
    html += std::string("<tr><td>") + row.label + "</td>" + cells(report.before);
    if (both) {
      html +=
          cells(report.after) + Change(known(report.before), known(report.after), FewAreGood(row));
    }
    html += "</tr>\n";
  }
  if (report.summary) html += RegionRows(*report.summary);
  return html + ConstantRows(report, both) + kEndOfTable;
}

std::string ExtensionTableHtml(const ReportContent& report) {
  std::string html = Head({"Extension", "#Files", "#Size", "#Fragmented", "#Share", "#Pieces"});
  for (const ExtensionRow& row : report.details.extensions) {
    html += "<tr><td>" + (row.extension.empty() ? "(none)" : Text(row.extension)) + "</td>";
    for (const std::string& cell :
         {Grouped(row.files), ByteText(row.clusters * report.volume.cluster_bytes),
          Grouped(row.fragmented), PercentText(row.fragmented, row.files), Grouped(row.pieces)}) {
      html += "<td class=n>" + cell + "</td>";
    }
    html += "</tr>\n";
  }
  return html + kEndOfTable;
}

std::string GainTable(const ReportContent& report) {
  const AnalysisDetails& details = report.details;
  const auto size = [&](std::int64_t clusters) {
    return ByteText(clusters * report.volume.cluster_bytes);
  };
  std::string html =
      Head({"Pass", "#Fragmented", "#Free regions", "#Largest gap", "#Moved for it"});
  html += "<tr><td>now</td><td class=n>" +
          (report.before ? Grouped(report.before->fragmented) : kUnknown) +
          "</td><td class=n></td><td class=n>" +
          (details.largest_gap ? size(*details.largest_gap) : "") + "</td><td></td></tr>\n";
  for (const PassGain& gain : details.gains) {
    html += "<tr><td>" + gain.Name() + "</td>";
    if (const std::optional<GainFigures>& figures = gain.figures) {
      for (const std::string& cell : {Grouped(figures->fragmented), Grouped(figures->free_regions),
                                      size(figures->largest_gap), size(figures->clusters_moved)}) {
        html += "<td class=n>" + cell + "</td>";
      }
    } else {
      html += "<td colspan=4>not worked out</td>";
    }
    html += "</tr>\n";
  }
  return html + kEndOfTable;
}

std::string Map(const char* caption, const MapColumns& columns, const Legend& legend) {
  if (columns.empty()) return "";
  return std::string("<figure><figcaption>") + caption +
         "</figcaption><img alt=\"Cluster map\" src=\"data:image/png;base64," +
         Base64(EncodePng(DrawMapWithLegend(columns, legend))) + "\"></figure>\n";
}

std::string More(std::size_t total) {
  if (total <= kMostRows) return "";
  return "<p class=sub>and " + Grouped(static_cast<std::int64_t>(total - kMostRows)) +
         " more</p>\n";
}

std::string FragmentedTable(const std::vector<FragmentedFile>& files, std::int64_t cluster_bytes) {
  if (files.empty()) return "<p>None.</p>\n";
  std::string html = Head({"File", "#Extents", "#Size"});
  for (std::size_t i = 0; i < std::min(files.size(), kMostRows); ++i) {
    html += Row(Text(files[i].path), Grouped(files[i].extents),
                ByteText(files[i].clusters * cluster_bytes), true);
  }
  return html + kEndOfTable + More(files.size());
}

std::string PlanTable(const PlanFigures& plan, std::int64_t cluster_bytes) {
  std::string html =
      "<p>" + PlanText(plan, cluster_bytes) + ".</p>\n" + Head({"", "#before", "#planned"});
  for (const PlanRow& row : PlanRows(plan, cluster_bytes)) {
    html += Row(row.label, row.before, row.after, true);
  }
  return html + kEndOfTable;
}

std::string StillFragmentedTable(const RunSummary& summary) {
  if (!summary.after) return "<p>Not known: the volume could not be read any more.</p>\n";
  const std::vector<StillFragmented>& files = summary.still_fragmented;
  if (files.empty()) return "<p>None.</p>\n";
  const std::string help = HelpText(summary);
  std::string html = (help.empty() ? "" : "<p>" + Text(help) + ".</p>\n") +
                     Head({"File", "#Fragments", "#Size", "Why"});
  for (std::size_t i = 0; i < std::min(files.size(), kMostRows); ++i) {
    const StillFragmented& file = files[i];
    html += "<tr><td>" + Text(file.path) + "</td><td class=n>" + Grouped(file.fragments) +
            "</td><td class=n>" + ByteText(file.clusters * summary.cluster_bytes) + "</td><td>" +
            Text(ReasonText(file, summary)) + "</td></tr>\n";
  }
  return html + kEndOfTable + More(files.size());
}

std::string UnreadableTable(const std::vector<ReadFailure>& failures) {
  std::string html = Head({"File", "Why"});
  for (std::size_t i = 0; i < std::min(failures.size(), kMostRows); ++i) {
    html += "<tr><td>" + Text(failures[i].path) + "</td><td>" + Text(ReasonText(failures[i])) +
            "</td></tr>\n";
  }
  return html + kEndOfTable + More(failures.size());
}

std::string MoveFailureTable(const std::vector<MoveFailure>& failures, std::int64_t cluster_bytes) {
  std::string html = Head({"File", "#Size", "Why"});
  for (std::size_t i = 0; i < std::min(failures.size(), kMostRows); ++i) {
    const MoveFailure& failure = failures[i];
    html += "<tr><td>" + Text(failure.path) + "</td><td class=n>" +
            (failure.clusters > 0 ? ByteText(failure.clusters * cluster_bytes) : kUnknown) +
            "</td><td>" + Text(ReasonText(failure)) + "</td></tr>\n";
  }
  return html + kEndOfTable + More(failures.size());
}

std::string LeftTable(const ReportContent& report) {
  if (!report.moved->failures.empty()) {
    return MoveFailureTable(report.moved->failures, report.volume.cluster_bytes);
  }
  const bool all_whole =
      report.summary && report.summary->after && report.summary->still_fragmented.empty();
  return all_whole ? "<p>Nothing: every move found its place.</p>\n" : "<p>None.</p>\n";
}

std::string TitleOf(const ReportContent& report) {
  const VolumeDescription& volume = report.volume;
  return report.action + " of " + volume.drive + (volume.label.empty() ? "" : " " + volume.label);
}

std::string Section(const ReportContent& report) {
  const VolumeDescription& volume = report.volume;
  std::string html = "<section>\n<h1>" + Text(TitleOf(report)) + "</h1>\n<p class=sub>" +
                     Text(volume.image) + " &middot; " + Text(volume.file_system) +
                     " &middot; clusters of " + Grouped(volume.cluster_bytes) + " bytes";
  if (report.dry_run) html += " &middot; dry run: nothing was written to the volume";
  if (report.stopped) html += " &middot; stopped before the end";
  html += "</p>\n<p class=sub>";
  if (!report.when.empty()) {
    html += Text(report.when) + " &middot; " + DurationText(report.took) + " in all &middot; ";
  }
  html += "Vornalux " VORNALUX_VERSION "</p>\n";
  for (const std::string& objection : volume.objections) {
    html += "<p>Only looked at: a pass would refuse it: " + Text(objection) + "</p>\n";
  }
  for (const std::string& remark : report.remarks) html += "<p>" + Text(remark) + "</p>\n";
  if (report.summary && report.summary->plan) {
    html += "<h2>Plan</h2>\n" + PlanTable(*report.summary->plan, volume.cluster_bytes);
  }
  html += "<h2>Map</h2>\n<div class=maps>\n";
  html += Map(report.moved ? "Before" : "Now", report.map_before, report.legend);
  html += Map("After", report.map_after, report.legend) + "</div>\n";
  html += "<h2>Figures</h2>\n" + FigureTable(report);
  if (report.moved) {
    html += "<p>" + Counted(report.moved->moves, "move") + ", " +
            Counted(report.moved->clusters_moved, "cluster") + " moved, " +
            Grouped(report.moved->refused) + " refused.</p>\n";
  }
  if (report.summary) {
    html += "<p>Took " +
            (report.dry_run ? DurationText(report.summary->duration) : PaceText(*report.summary)) +
            ".</p>\n";
  }
  if (report.shrink) {
    html += "<pre>";
    for (const std::string& line : ShrinkLines(*report.shrink)) html += Text(line) + "\n";
    html += "</pre>\n";
  }
  if (report.discard) {
    for (const std::string& line : DiscardLines(*report.discard, report.dry_run)) {
      html += "<p>" + Text(line) + ".</p>\n";
    }
  }
  if (!report.details.gains.empty()) {
    html += "<h2>What passes would leave</h2>\n" + GainTable(report);
  }
  if (!report.details.extensions.empty()) {
    html += "<h2>By extension</h2>\n" + ExtensionTableHtml(report);
  }
  if (!report.moved) {
    html +=
        "<h2>Fragmented files</h2>\n" + FragmentedTable(report.fragmented, volume.cluster_bytes);
  } else if (report.summary) {
    html += "<h2>Still fragmented</h2>\n" + StillFragmentedTable(*report.summary);
  }
  if (report.moved) html += "<h2>Left where it was</h2>\n" + LeftTable(report);
  if (!report.unreadable.empty()) {
    html += "<h2>Could not be read</h2>\n" + UnreadableTable(report.unreadable);
  }
  return html + "</section>\n";
}

}  // namespace

std::string ToHtml(std::span<const ReportContent> reports) {
  std::string title = TitleOf(reports.front());
  if (reports.size() > 1) title += " and " + std::to_string(reports.size() - 1) + " more";
  std::string html =
      "<!DOCTYPE html>\n<html lang=en>\n<meta charset=utf-8>\n"
      "<meta name=viewport content=\"width=device-width\">\n<title>" +
      Text(title) + "</title>\n<style>" + kStyle + "</style>\n";
  for (const ReportContent& report : reports) html += Section(report);
  return html + "</html>\n";
}

}  // namespace vornalux
