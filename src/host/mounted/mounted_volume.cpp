// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/mounted_volume.h"

namespace vornalux {

ErrorCode MountedVolume::ListFolder(ItemId folder, std::vector<FolderItem>& out) {
  out.clear();
  FolderListing listing;
  if (const ErrorCode error = List(folder, listing)) return error;
  out.reserve(listing.Size());
  for (std::size_t i = 0; i < listing.Size(); ++i) {
    out.push_back({std::string(listing.Name(i)), listing.Attributes(i), listing.Id(i)});
  }
  return error::kSuccess;
}

}  // namespace vornalux
