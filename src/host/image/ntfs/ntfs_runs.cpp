// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_runs.h"

#include <limits>
#include <utility>

#include "host/image/ntfs/ntfs_mount.h"

namespace vornalux {
namespace {

std::int64_t EndOf(const std::vector<ClusterRun>& runs) {
  return runs.empty() ? 0 : runs.back().vcn + runs.back().count;
}

bool HasHoles(const std::vector<ClusterRun>& runs) {
  return std::any_of(runs.begin(), runs.end(), [](const ClusterRun& run) { return run.lcn < 0; });
}

// A list of attributes could name another file's record; changing that would change the other file.
bool RecordIsOf(const ntfs_inode* inode, const ntfs_attr_search_ctx* context) {
  return context->ntfs_ino == inode ||
         MREF(le64_to_cpu(context->mrec->base_mft_record)) == inode->mft_no;
}

int AppendRecord(const ntfs_volume* volume, const ATTR_RECORD* record,
                 std::vector<ClusterRun>& out) {
  errno = 0;
  const RunlistHandle runs(ntfs_mapping_pairs_decompress(volume, record, nullptr));
  if (!runs) return LibraryError();
  for (const runlist_element* run = runs.get(); run->length != 0; ++run) {
    if (run->lcn == LCN_RL_NOT_MAPPED) continue;  // stands for the attribute's other records
    out.push_back({run->vcn, run->lcn < 0 ? -1 : run->lcn, run->length});
  }
  return 0;
}

// Would the attribute's new mapping pairs still fit into the one record that it has?
bool FitsItsRecord(ntfs_inode* inode, const AttributeName& name, const runlist_element* runs) {
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context || FindAttribute(name, 0, context.get()) != 0) return false;
  const ATTR_RECORD* record = context->attr;
  const s64 present = s64{le32_to_cpu(record->length)} - le16_to_cpu(record->mapping_pairs_offset);
  const s64 room = s64{le32_to_cpu(context->mrec->bytes_allocated)} -
                   le32_to_cpu(context->mrec->bytes_in_use) + present;
  const int needed =
      ntfs_get_size_for_mapping_pairs(inode->vol, runs, 0, std::numeric_limits<int>::max());
  return needed > 0 && (s64{needed} + 7) / 8 * 8 <= room;
}

int SetFlag(ntfs_inode* inode, const AttributeName& name, ATTR_FLAGS flag, bool on) {
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context) return LibraryError();
  if (const int error = FindAttribute(name, 0, context.get())) return error;
  const auto flags = static_cast<std::uint16_t>(context->attr->flags);
  const auto mask = static_cast<std::uint16_t>(flag);
  const auto changed = static_cast<std::uint16_t>(on ? flags | mask : flags & ~mask);
  context->attr->flags = static_cast<ATTR_FLAGS>(changed);
  ntfs_inode_mark_dirty(context->ntfs_ino);
  return 0;
}

int UpdateMappingPairs(ntfs_inode* inode, const AttributeName& name, ntfs_attr* attribute,
                       const MovePlan& plan) {
  // The library would take the sparse mark off a stream without holes; the mark is the file's, not
  // ours to change. It leaves the mark alone where it sees a compressed one.
  const bool keep_sparse = (attribute->data_flags & ATTR_IS_SPARSE) &&
                           !(attribute->data_flags & ATTR_IS_COMPRESSED) && !HasHoles(plan.after);
  if (keep_sparse) {
    if (const int error = SetFlag(inode, name, ATTR_IS_COMPRESSED, true)) return error;
  }
  errno = 0;
  if (ntfs_attr_update_mapping_pairs(attribute, plan.sources.front().vcn) != 0) {
    return LibraryError();
  }
  return keep_sparse ? SetFlag(inode, name, ATTR_IS_COMPRESSED, false) : 0;
}

}  // namespace

int ReadRuns(ntfs_inode* inode, const AttributeName& name, std::vector<ClusterRun>& out) {
  out.clear();
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context) return LibraryError();
  if (const int error = FindAttribute(name, 0, context.get())) return error;
  if (!context->attr->non_resident) return 0;

  const ntfs_volume* volume = inode->vol;
  const s64 allocated = sle64_to_cpu(context->attr->allocated_size);
  if (allocated < 0 || allocated > std::numeric_limits<s64>::max() - volume->cluster_size) {
    return EIO;
  }
  const s64 end = (allocated + volume->cluster_size - 1) >> volume->cluster_size_bits;
  for (s64 next = 0;;) {
    if (sle64_to_cpu(context->attr->lowest_vcn) != next || !context->attr->non_resident ||
        !RecordIsOf(inode, context.get())) {
      return EIO;
    }
    if (const int error = AppendRecord(volume, context->attr, out)) return error;
    if (EndOf(out) >= end) break;
    if (EndOf(out) <= next) return EIO;
    next = EndOf(out);
    if (const int error = FindAttribute(name, next, context.get())) {
      return error == ENOENT ? EIO : error;
    }
  }
  return EndOf(out) == end && RunsAreSound(out, volume->nr_clusters) ? 0 : EIO;
}

RunlistHandle MakeRunlist(const std::vector<ClusterRun>& runs) {
  // The library grows run lists in place within steps of this size.
  constexpr std::size_t kStep = 4096;
  const std::size_t bytes = (runs.size() + 1) * sizeof(runlist_element);
  RunlistHandle list(
      static_cast<runlist_element*>(std::calloc(1, (bytes + kStep - 1) / kStep * kStep)));
  if (!list) return list;
  runlist_element* element = list.get();
  for (const ClusterRun& run : runs) {
    *element++ = {run.vcn, run.lcn < 0 ? static_cast<LCN>(LCN_HOLE) : run.lcn, run.count};
  }
  *element = {EndOf(runs), LCN_ENOENT, 0};
  return list;
}

int RewriteRuns(NtfsMount& mount, ntfs_inode* inode, const AttributeName& name,
                const MovePlan& plan) {
  ntfs_volume* volume = mount.Volume();
  AttributeHandle attribute = mount.OpenAttribute(inode, name);
  if (!attribute) return LibraryError();
  const bool may_have_holes = attribute->data_flags & (ATTR_IS_SPARSE | ATTR_IS_COMPRESSED);
  if (!IsNonResident(attribute.get()) || (HasHoles(plan.after) && !may_have_holes)) return EIO;

  RunlistHandle after = MakeRunlist(plan.after);
  if (!after) return ENOMEM;
  // $MFT must be found without reading other records of $MFT.
  if (inode == volume->mft_ni && !FitsItsRecord(inode, name, after.get())) return EACCES;

  // The library may allocate clusters below: it must find the target taken.
  errno = 0;
  if (!mount.Device().SetBits(plan.target_lcn, plan.target_count, true) &&
      ntfs_bitmap_set_run(volume->lcnbmp_na, plan.target_lcn, plan.target_count) != 0) {
    return LibraryError();
  }
  std::free(std::exchange(attribute->rl, after.release()));
  attribute->unused_runs = 0;
  SetFullyMapped(attribute.get());
  if (const int error = UpdateMappingPairs(inode, name, attribute.get(), plan)) return error;
  attribute.reset();

  // Neither size nor time has changed, so no index entry of the file needs writing.
  ForgetNameChange(inode);
  if (ntfs_inode_sync(inode) != 0) return LibraryError();
  for (const ClusterRun& source : plan.sources) {
    if (!mount.Device().SetBits(source.lcn, source.count, false) &&
        ntfs_bitmap_clear_run(volume->lcnbmp_na, source.lcn, source.count) != 0) {
      return LibraryError();
    }
  }
  volume->full_zones = 0;  // where the library found no free cluster, there may now be some
  return mount.SyncSystemFiles();
}

}  // namespace vornalux
