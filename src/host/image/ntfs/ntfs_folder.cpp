// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_folder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "host/image/ntfs/ntfs_mount.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kFirstOrdinaryRecord = 24;   // those before are metafiles or kept for such
constexpr std::uint32_t kIndexPresent = 0x10000000;  // how NTFS says "folder" in a file name
constexpr std::uint32_t kInternalBits = 0xF0000000;

struct Listing {
  FolderListing* items = nullptr;
  int error = 0;
};

bool IsDotOrDotDot(const ntfschar* name, int length) {
  return length > 0 && length <= 2 && le16_to_cpu(name[0]) == '.' &&
         le16_to_cpu(name[length - 1]) == '.';
}

void AddEntry(Listing& listing, const ntfschar* units, int length, int name_type, MFT_REF mref) {
  if (name_type == FILE_NAME_DOS || IsDotOrDotDot(units, length)) return;
  if (MREF(mref) < kFirstOrdinaryRecord) return;

  // The units are those of the index entry's file name attribute, which says more about the item.
  const auto* file_name = reinterpret_cast<const FILE_NAME_ATTR*>(
      reinterpret_cast<const std::uint8_t*>(units) - offsetof(FILE_NAME_ATTR, file_name));
  // Copied: damaged flags are no value of the enumeration that the library has for them.
  std::uint32_t stored = 0;
  std::memcpy(&stored, &file_name->file_attributes, sizeof stored);
  stored = le32_to_cpu(stored);
  std::uint32_t attributes = stored & ~(kInternalBits | attribute::kDirectory);
  if (stored & kIndexPresent) attributes |= attribute::kDirectory;
  const std::u16string name = FromUnits(units, static_cast<std::size_t>(length));
  if (!listing.items->Add(ToWtf8(name), attributes, mref)) listing.error = ECANCELED;
}

// An index larger than the volume can only be made up, and would take forever to search.
bool SizesArePlausible(ntfs_inode* folder) {
  const ntfs_volume* volume = folder->vol;
  const s64 volume_size = volume->nr_clusters << volume->cluster_size_bits;
  const std::vector<ntfschar> index_name(NTFS_INDEX_I30, NTFS_INDEX_I30 + 4);
  const std::pair<ATTR_TYPES, s64> limits[] = {
      {AT_INDEX_ALLOCATION, volume_size},
      {AT_BITMAP, volume_size / NTFS_BLOCK_SIZE / 8 + 4096},
  };
  for (const auto& [type, most] : limits) {
    const SearchContext context(ntfs_attr_get_search_ctx(folder, nullptr));
    if (!context) return false;
    if (FindAttribute({type, index_name}, 0, context.get()) != 0) continue;
    const ATTR_RECORD* record = context->attr;
    const s64 size = record->non_resident ? sle64_to_cpu(record->data_size) : 0;
    if (size < 0 || size > most) return false;
  }
  return true;
}

}  // namespace

extern "C" {
static int OnEntry(void* context, const ntfschar* name, const int length, const int name_type,
                   const s64, const MFT_REF mref, const unsigned) {
  auto& listing = *static_cast<Listing*>(context);
  try {
    AddEntry(listing, name, length, name_type, mref);
  } catch (...) {
    listing.error = ENOMEM;
  }
  return listing.error == 0 ? 0 : -1;
}
}

int ListIndex(ntfs_inode* folder, const UpcaseTable& upcase, FolderListing& out) {
  if (!(folder->mrec->flags & MFT_RECORD_IS_DIRECTORY)) return ENOTDIR;
  if (!SizesArePlausible(folder)) return EIO;
  Listing listing{&out};
  s64 position = 0;
  errno = 0;
  const bool listed = ntfs_readdir(folder, &position, &listing, OnEntry) == 0;
  if (listing.error != 0) return listing.error;
  if (!listed) return LibraryError();

  // The library goes through the index block by block; the order of the index is by name.
  out.Sort([&](std::string_view a, std::string_view b) { return upcase.Before(a, b); });
  return 0;
}

bool HasNamesOnlyIn(ntfs_inode* inode, std::uint64_t folder) {
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context) return false;
  while (ntfs_attr_lookup(AT_FILE_NAME, AT_UNNAMED, 0, CASE_SENSITIVE, 0, nullptr, 0,
                          context.get()) == 0) {
    const ATTR_RECORD* record = context->attr;
    const auto* file_name = reinterpret_cast<const FILE_NAME_ATTR*>(
        reinterpret_cast<const std::uint8_t*>(record) + le16_to_cpu(record->value_offset));
    if (MREF(le64_to_cpu(file_name->parent_directory)) != folder) return false;
  }
  return true;
}

}  // namespace vornalux
