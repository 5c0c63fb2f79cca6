// SPDX-License-Identifier: GPL-2.0-or-later
// vornalux-mkvolume: makes an NTFS or FAT volume image from a recipe.
#include <CLI/CLI.hpp>
#include <iostream>

#include "host/terminal/output/standard_streams.h"
#include "mkvolume/maker.h"

namespace {

constexpr const char* kDescription =
    "Makes an image file with a filled NTFS or FAT volume. Needs no rights beyond writing the "
    "file.\n"
    "The same recipe gives the same files, content and places of clusters.\n"
    "\n"
    "A recipe: ntfs size=512M files=5000 folders=200 fragmented=50% pieces=12 fill=60% seed=1\n"
    "  ntfs fat12 fat16 fat32  the file system\n"
    "  size cluster sector     in bytes, or with K, M, G\n"
    "  files folders crowd     how many; crowd of the files lie in one folder\n"
    "  fill                    share of clusters in use (as the sizes give, when left out)\n"
    "  big                     further files of 2% to 5% of the volume each\n"
    "  fragmented pieces       share of files that are; their mean number of extents\n"
    "  fragmented-folders      the same share of folders\n"
    "  shredded=N:EXTENTS      further files of so many extents each\n"
    "  windows drive           1: a Windows folder with Prefetch and layout.ini for that drive\n"
    "  odd-names               share of long and non-ASCII names\n"
    "  streams sparse compressed links dos-names mft-pieces   NTFS: shares of files; extents of "
    "$MFT\n"
    "  deleted bad             FAT: deleted entries as a share of files; bad clusters\n"
    "  partitioned             1: a disk with a partition table, the volume at 1 MiB\n"
    "  seed                    a number";

}  // namespace

int main(int argc, char** argv) try {
  if (!vornalux::OccupyStandardStreams()) return 1;
  std::string image;
  std::string manifest_path;
  std::vector<std::string> words;
  CLI::App app(kDescription);
  app.add_option("image", image, "image file to make; replaced when it is there")->required();
  app.add_option("recipe", words, "words of the recipe");
  app.add_option("--manifest", manifest_path, "write what the volume holds to this file");
  CLI11_PARSE(app, argc, argv);
  std::string text;
  for (const std::string& word : words) text += word + " ";
  const vornalux::Recipe recipe = vornalux::Recipe::Parse(text);
  const vornalux::Manifest manifest = vornalux::MakeVolume(recipe, image);
  if (!manifest_path.empty()) manifest.Save(manifest_path);
  std::cout << image << ": " << manifest.entries.size() << " streams and folders, recipe "
            << recipe.Text() << '\n';
  return 0;
} catch (const std::exception& error) {
  std::cerr << "vornalux-mkvolume: " << error.what() << '\n';
  return 1;
}
