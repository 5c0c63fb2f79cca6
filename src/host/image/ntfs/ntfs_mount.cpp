// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_mount.h"

#include <array>

namespace vornalux {
namespace {

// Opening a data stream to which nothing was written makes the library give the stream's record the
// compression state of the file, whatever its layout says. This lets the record look written while
// it is opened.
class PretendWritten {
 public:
  explicit PretendWritten(ATTR_RECORD* record)
      : record_(record), flags_(record->flags), initialized_size_(record->initialized_size) {
    if (record_->non_resident && initialized_size_ == 0)
      record_->initialized_size = cpu_to_sle64(1);
  }
  PretendWritten(const PretendWritten&) = delete;
  PretendWritten& operator=(const PretendWritten&) = delete;
  ~PretendWritten() {
    record_->flags = flags_;
    if (record_->non_resident) record_->initialized_size = initialized_size_;
  }

  s64 InitializedSize() const { return sle64_to_cpu(initialized_size_); }

 private:
  ATTR_RECORD* record_;
  ATTR_FLAGS flags_;
  sle64 initialized_size_;
};

}  // namespace

int FindAttribute(const AttributeName& name, s64 lowest_vcn, ntfs_attr_search_ctx* context) {
  const ntfschar* units = name.name.empty() ? AT_UNNAMED : name.name.data();
  const auto length = static_cast<u32>(name.name.size());
  errno = 0;
  return ntfs_attr_lookup(name.type, units, length, CASE_SENSITIVE, lowest_vcn, nullptr, 0,
                          context) == 0
             ? 0
             : LibraryError();
}

bool EveryStreamIsFound(ntfs_inode* inode) {
  const SearchContext all(ntfs_attr_get_search_ctx(inode, nullptr));
  const SearchContext one(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!all || !one) return false;
  errno = 0;
  while (ntfs_attr_lookup(AT_DATA, nullptr, 0, CASE_SENSITIVE, 0, nullptr, 0, all.get()) == 0) {
    const ATTR_RECORD* record = all->attr;
    const auto* name = reinterpret_cast<const ntfschar*>(
        reinterpret_cast<const std::uint8_t*>(record) + le16_to_cpu(record->name_offset));
    ntfs_attr_reinit_search_ctx(one.get());
    if (FindAttribute({AT_DATA, {name, name + record->name_length}}, 0, one.get()) != 0)
      return false;
  }
  return errno == ENOENT;
}

std::unique_ptr<NtfsMount> NtfsMount::Open(NtfsDevice& device, bool unclean) {
  CollectLibraryMessages();
  ntfs_device* handle = device.NewHandle();
  if (handle == nullptr) return nullptr;
  errno = 0;
  ntfs_volume* volume = ntfs_device_mount(handle, unclean ? NTFS_MNT_RDONLY : NTFS_MNT_NONE);
  if (volume == nullptr) {
    const int error = LibraryError();
    ntfs_device_free(handle);
    errno = error;
    return nullptr;
  }
  // What may be written is for the device to say; a dry run's takes it all.
  LetWrite(volume);
  ntfs_set_shown_files(volume, TRUE, TRUE, FALSE);
  return std::unique_ptr<NtfsMount>(new NtfsMount(device, volume));
}

NtfsMount::~NtfsMount() {
  for (ntfs_inode* inode : {inode_, volume_->mft_ni, volume_->mftmirr_ni, volume_->lcnbmp_ni,
                            volume_->vol_ni, volume_->secure_ni}) {
    if (inode != nullptr) ForgetChanges(inode);
  }
  device_.DropWrites(true);
  ntfs_inode_close(inode_);
  ntfs_umount(volume_, TRUE);
  device_.DropWrites(false);
}

ntfs_inode* NtfsMount::LibraryInode(std::uint64_t record) const {
  for (ntfs_inode* inode : {volume_->mft_ni, volume_->mftmirr_ni, volume_->lcnbmp_ni,
                            volume_->vol_ni, volume_->secure_ni}) {
    if (inode != nullptr && inode->mft_no == record) return inode;
  }
  return nullptr;
}

ntfs_inode* NtfsMount::Inode(ItemId item) {
  const auto has_sequence = [item](const ntfs_inode* inode) {
    return MSEQNO(item) == 0 || MSEQNO(item) == le16_to_cpu(inode->mrec->sequence_number);
  };
  errno = ENOENT;
  if (ntfs_inode* own = LibraryInode(MREF(item))) return has_sequence(own) ? own : nullptr;
  if (inode_ != nullptr && inode_->mft_no == MREF(item)) {
    return has_sequence(inode_) ? inode_ : nullptr;
  }
  CloseInode();
  errno = 0;
  inode_ = ntfs_inode_open(volume_, item);
  return inode_;
}

void NtfsMount::CloseInode() {
  ntfs_inode_close(inode_);
  inode_ = nullptr;
}

ntfs_attr* NtfsMount::LibraryAttribute(const ntfs_inode* inode, const AttributeName& name) const {
  if (!name.name.empty()) return nullptr;
  for (ntfs_attr* attribute :
       {volume_->mft_na, volume_->mftbmp_na, volume_->mftmirr_na, volume_->lcnbmp_na}) {
    if (attribute->ni == inode && attribute->type == name.type) return attribute;
  }
  return nullptr;
}

AttributeHandle NtfsMount::OpenAttribute(ntfs_inode* inode, const AttributeName& name) {
  if (ntfs_attr* own = LibraryAttribute(inode, name)) {
    return AttributeHandle(own, CloseAttribute{.borrowed = true});
  }
  // The library takes a missing name for any name, so this makes sure of the right one.
  const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
  if (!context) return nullptr;
  if (const int error = FindAttribute(name, 0, context.get())) {
    errno = error;
    return nullptr;
  }
  const PretendWritten pretence(context->attr);
  std::vector<ntfschar> units = name.name;
  errno = 0;
  AttributeHandle attribute(ntfs_attr_open(inode, name.type, units.empty() ? nullptr : units.data(),
                                           static_cast<u32>(units.size())));
  if (attribute && IsNonResident(attribute.get())) {
    attribute->initialized_size = pretence.InitializedSize();
  }
  return attribute;
}

int NtfsMount::SyncSystemFiles() {
  for (ntfs_inode* inode : {volume_->mft_ni, volume_->mftmirr_ni, volume_->lcnbmp_ni}) {
    if (!NeedsSync(inode)) continue;
    errno = 0;
    if (ntfs_inode_sync(inode) != 0) return LibraryError();
  }
  return 0;
}

// Not ntfs_volume_write_flags(), which drops flags that it does not know.
int NtfsMount::WriteDirtyFlag(bool dirty) {
  const SearchContext context(ntfs_attr_get_search_ctx(volume_->vol_ni, nullptr));
  if (!context) return LibraryError();
  if (const int error = FindAttribute({AT_VOLUME_INFORMATION, {}}, 0, context.get())) return error;
  ATTR_RECORD* record = context->attr;
  const u32 offset = le16_to_cpu(record->value_offset);
  if (record->non_resident || le32_to_cpu(record->value_length) < sizeof(VOLUME_INFORMATION) ||
      offset + sizeof(VOLUME_INFORMATION) > le32_to_cpu(record->length)) {
    return EIO;
  }
  auto* information =
      reinterpret_cast<VOLUME_INFORMATION*>(reinterpret_cast<std::uint8_t*>(record) + offset);
  const auto mask = static_cast<std::uint16_t>(VOLUME_IS_DIRTY);
  const auto flags = static_cast<std::uint16_t>(information->flags);
  const auto changed = static_cast<std::uint16_t>(dirty ? flags | mask : flags & ~mask);
  // A record that is written again has another update sequence number: after two interruptions the
  // volume is, byte for byte, as it is after one.
  if (changed == flags) return 0;
  information->flags = static_cast<VOLUME_FLAGS>(changed);
  volume_->flags = information->flags;
  ntfs_inode_mark_dirty(context->ntfs_ino);
  errno = 0;
  return ntfs_inode_sync(volume_->vol_ni) == 0 ? 0 : LibraryError();
}

}  // namespace vornalux
