// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

namespace vornalux {

// What a run works on.
struct RunTarget {
  std::string drive;        // the volume's root, "C:\"
  std::string directory;    // folder below the root, no backslash at either end; empty: all of it
  std::string file_system;  // "NTFS", "FAT32", "FAT" ...
  std::string exclude;      // extensions that Defrag leaves alone, such as "*.iso; *.vhd"
  std::vector<std::string> files;  // full paths: the run is about these alone; empty: all

  std::string Drive() const { return drive.substr(0, 2); }  // "C:"
  std::string Root() const { return drive.substr(0, 3); }   // "C:\"
  // What a walk begins with: the root or the folder, with a backslash at its end.
  std::string Folder() const {
    return directory.empty() ? Root() : Drive() + "\\" + directory + "\\";
  }
  bool Ntfs() const { return file_system == "NTFS"; }
  std::string MasterFileTable() const { return Drive() + "\\$MFT"; }
};

}  // namespace vornalux
