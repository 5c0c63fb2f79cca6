// SPDX-License-Identifier: GPL-2.0-or-later
// vornalux-check: judges the structure and content of an NTFS or FAT volume in an image.
#include <CLI/CLI.hpp>
#include <iostream>

#include "check/content.h"
#include "check/volume_check.h"
#include "host/terminal/output/standard_streams.h"

namespace vornalux {
namespace {

struct Arguments {
  std::string image;
  std::string manifest;
  std::string write_manifest;
  std::uint64_t offset = 0;
  bool allow_dirty = false;
  bool extents = false;
};

void PrintSummary(const CheckReport& report) {
  std::cout << (report.file_system.empty() ? "unknown" : report.file_system) << ", "
            << report.clusters << " clusters of " << report.cluster_size << " bytes, "
            << report.clusters_used << " in use";
  if (report.clusters_bad > 0) std::cout << " (" << report.clusters_bad << " bad)";
  std::cout << "\n"
            << report.files << " files, " << report.folders << " folders, " << report.fragments
            << " fragments, " << report.fragmented_streams << " fragmented"
            << (report.dirty ? ", marked dirty" : "") << "\n";
}

void PrintExtents(const std::vector<CheckedItem>& items) {
  for (const CheckedItem& item : items) {
    std::cout << item.path << (item.stream.empty() ? "" : ":" + item.stream);
    for (const CheckedExtent& extent : item.extents) {
      std::cout << ' ' << extent.vcn << '@' << extent.lcn << '+' << extent.count;
    }
    std::cout << '\n';
  }
}

int Run(const Arguments& arguments) {
  CheckOptions options;
  options.offset = arguments.offset;
  options.hash = !arguments.manifest.empty() || !arguments.write_manifest.empty();
  // Read first: a manifest that is no use should not cost the time of a check.
  Manifest expected;
  if (!arguments.manifest.empty()) expected = Manifest::Load(arguments.manifest);
  const CheckReport report = CheckVolume(arguments.image, options);
  PrintSummary(report);
  if (arguments.extents) {
    PrintExtents(report.metafiles);
    PrintExtents(report.items);
  }
  std::vector<std::string> faults = report.problems;
  if (report.dirty && !arguments.allow_dirty) faults.push_back("the volume is marked dirty");
  if (!arguments.manifest.empty()) {
    for (std::string& line : CompareContent(report.items, expected)) {
      faults.push_back(std::move(line));
    }
  }
  if (!arguments.write_manifest.empty()) {
    Manifest manifest = ManifestOf(report.items);
    manifest.header = expected.header;
    manifest.Save(arguments.write_manifest);
  }
  for (const std::string& fault : faults) std::cout << fault << '\n';
  std::cout << (faults.empty() ? "clean\n" : std::to_string(faults.size()) + " problems\n");
  return faults.empty() ? 0 : 1;
}

}  // namespace
}  // namespace vornalux

int main(int argc, char** argv) try {
  if (!vornalux::OccupyStandardStreams()) return 2;
  vornalux::Arguments arguments;
  CLI::App app(
      "Judges the structure and content of an NTFS or FAT volume from its raw bytes.\n"
      "Exit status: 0 clean, 1 problems found, 2 the check could not be made.");
  app.add_option("image", arguments.image, "image file or block device")->required();
  app.add_option("--manifest", arguments.manifest, "compare the content with this manifest");
  app.add_option("--write-manifest", arguments.write_manifest,
                 "write a manifest of the present content");
  app.add_option("--partition", arguments.offset,
                 "offset of the volume inside the image, in bytes (or with K, M, G)")
      ->transform(CLI::AsSizeValue(false));
  app.add_flag("--allow-dirty", arguments.allow_dirty, "a dirty flag is no problem");
  app.add_flag("--extents", arguments.extents, "list every item as VCN@LCN+COUNT");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return vornalux::Run(arguments);
} catch (const std::exception& error) {
  std::cerr << "vornalux-check: " << error.what() << '\n';
  return 2;
}
