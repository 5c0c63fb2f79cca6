// SPDX-License-Identifier: GPL-2.0-or-later
// The yardstick for an analysis: what libntfs-3g alone takes to list every folder of an image, open
// each inode in it and decompress its run list. Prints how many items and runs it saw.
#include <cstdio>
#include <vector>

#include "host/image/ntfs/ntfs_library.h"

namespace {

using namespace vornalux;

constexpr std::uint64_t kFirstOrdinaryRecord = 24;

extern "C" int OnName(void* context, const ntfschar* name, const int length, const int name_type,
                      const s64, const MFT_REF item, const unsigned) {
  const bool dots = name[0] == '.' && (length == 1 || (length == 2 && name[1] == '.'));
  if (!dots && name_type != FILE_NAME_DOS && MREF(item) >= kFirstOrdinaryRecord) {
    static_cast<std::vector<MFT_REF>*>(context)->push_back(item);
  }
  return 0;
}

long RunsOf(ntfs_inode* inode) {
  static ntfschar index_name[] = {'$', 'I', '3', '0'};
  const bool folder = inode->mrec->flags & MFT_RECORD_IS_DIRECTORY;
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  long runs = 0;
  const bool found =
      ntfs_attr_lookup(folder ? AT_INDEX_ALLOCATION : AT_DATA, folder ? index_name : AT_UNNAMED,
                       folder ? 4 : 0, CASE_SENSITIVE, 0, nullptr, 0, context.get()) == 0;
  if (!found || !context->attr->non_resident) return 0;
  const std::unique_ptr<runlist_element, FreeMemory> list(
      ntfs_mapping_pairs_decompress(inode->vol, context->attr, nullptr));
  for (const runlist_element* run = list.get(); run != nullptr && run->length != 0; ++run) ++runs;
  return runs;
}

}  // namespace

int main(int argc, char** argv) {
  ntfs_volume* volume = argc == 2 ? ntfs_mount(argv[1], NTFS_MNT_RDONLY) : nullptr;
  if (volume == nullptr) {
    std::fprintf(stderr, "usage: vornalux_bare_walk IMAGE, of a sound NTFS volume\n");
    return 1;
  }
  long items = 0;
  long runs = 0;
  std::vector<MFT_REF> folders = {FILE_root};
  std::vector<MFT_REF> names;
  while (!folders.empty()) {
    ntfs_inode* folder = ntfs_inode_open(volume, folders.back());
    folders.pop_back();
    if (folder == nullptr) return 1;
    names.clear();
    s64 position = 0;
    if (ntfs_readdir(folder, &position, &names, OnName) != 0) return 1;
    ntfs_inode_close(folder);
    for (const MFT_REF name : names) {
      ntfs_inode* item = ntfs_inode_open(volume, name);
      if (item == nullptr) return 1;
      ++items;
      runs += RunsOf(item);
      if (item->mrec->flags & MFT_RECORD_IS_DIRECTORY) folders.push_back(name);
      ntfs_inode_close(item);
    }
  }
  ntfs_umount(volume, TRUE);
  std::printf("%ld items, %ld runs\n", items, runs);
  return 0;
}
