// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/ntfs_library.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace vornalux::making {
namespace {

// The library's device, as it calls it from C: nothing may be thrown here.
struct Device {
  Image* image = nullptr;
  s64 position = 0;
};

Device& Of(ntfs_device* device) { return *static_cast<Device*>(device->d_private); }

int DeviceOpen(ntfs_device* device, int) {
  NDevSetOpen(device);
  return 0;
}

int DeviceClose(ntfs_device* device) {
  device->d_state &= ~(1UL << ND_Open);
  return 0;
}

s64 DevicePread(ntfs_device* device, void* buffer, s64 count, s64 offset) {
  return pread(Of(device).image->Descriptor(), buffer, static_cast<std::size_t>(count), offset);
}

s64 DevicePwrite(ntfs_device* device, const void* buffer, s64 count, s64 offset) {
  return pwrite(Of(device).image->Descriptor(), buffer, static_cast<std::size_t>(count), offset);
}

s64 DeviceSeek(ntfs_device* device, s64 offset, int whence) {
  Device& state = Of(device);
  s64 base = 0;
  if (whence == SEEK_CUR) base = state.position;
  if (whence == SEEK_END) base = lseek(state.image->Descriptor(), 0, SEEK_END);
  return state.position = base + offset;
}

s64 DeviceRead(ntfs_device* device, void* buffer, s64 count) {
  const s64 got = DevicePread(device, buffer, count, Of(device).position);
  if (got > 0) Of(device).position += got;
  return got;
}

s64 DeviceWrite(ntfs_device* device, const void* buffer, s64 count) {
  const s64 put = DevicePwrite(device, buffer, count, Of(device).position);
  if (put > 0) Of(device).position += put;
  return put;
}

// An image being made needs not survive a power cut.
int DeviceSync(ntfs_device*) { return 0; }

int DeviceStat(ntfs_device* device, struct stat* out) {
  return fstat(Of(device).image->Descriptor(), out);
}

int DeviceIoctl(ntfs_device*, unsigned long, void*) {
  errno = EOPNOTSUPP;
  return -1;
}

ntfs_device_operations device_operations = {
    DeviceOpen,  DeviceClose,  DeviceSeek, DeviceRead, DeviceWrite,
    DevicePread, DevicePwrite, DeviceSync, DeviceStat, DeviceIoctl,
};

}  // namespace

void NtfsFailed(const std::string& action) {
  throw std::runtime_error("NTFS: " + action + ": " + std::strerror(errno));
}

NtfsInode NtfsInode::Open(ntfs_volume* volume, std::uint64_t reference) {
  ntfs_inode* inode = ntfs_inode_open(volume, reference);
  if (inode == nullptr) NtfsFailed("cannot open record " + std::to_string(MREF(reference)));
  return NtfsInode(inode);
}

NtfsInode::~NtfsInode() {
  if (inode_ != nullptr) ntfs_inode_close(inode_);
}

void NtfsInode::Close() {
  if (ntfs_inode_close(Release()) != 0) NtfsFailed("cannot write a file's record back");
}

void NtfsInode::CloseIn(const NtfsInode& folder) {
  if (ntfs_inode_close_in_dir(Release(), folder.get()) != 0) {
    NtfsFailed("cannot write a file's record back");
  }
}

NtfsAttributeHandle OpenAttribute(ntfs_inode* inode, ATTR_TYPES type, std::u16string_view name) {
  // The library keeps a copy of the name; its parameter is just not declared const.
  std::vector<ntfschar> units(name.begin(), name.end());
  return NtfsAttributeHandle(ntfs_attr_open(inode, type, units.empty() ? AT_UNNAMED : units.data(),
                                            static_cast<u32>(units.size())));
}

MountedNtfs::MountedNtfs(Image& image) {
  auto state = std::make_unique<Device>(Device{&image});
  ntfs_device* device = ntfs_device_alloc(image.Path().c_str(), 0, &device_operations, state.get());
  if (device == nullptr) NtfsFailed("cannot set up the device");
  volume_ = ntfs_device_mount(device, 0);
  if (volume_ == nullptr) {
    const int code = errno;
    ntfs_device_free(device);
    errno = code;
    NtfsFailed("cannot mount the new volume");
  }
  static_cast<void>(state.release());  // deleted with the mount
  NVolSetCompression(volume_);
}

void MountedNtfs::Unmount() {
  auto* state = static_cast<Device*>(volume_->dev->d_private);
  const int result = ntfs_umount(std::exchange(volume_, nullptr), FALSE);
  delete state;
  if (result != 0) NtfsFailed("cannot unmount the volume");
}

MountedNtfs::~MountedNtfs() {
  if (volume_ == nullptr) return;
  auto* state = static_cast<Device*>(volume_->dev->d_private);
  ntfs_umount(volume_, TRUE);
  delete state;
}

ClusterSet MountedNtfs::ReadBitmap() {
  std::vector<std::uint8_t> bits(static_cast<std::size_t>((volume_->nr_clusters + 7) / 8));
  const auto size = static_cast<s64>(bits.size());
  if (ntfs_attr_pread(volume_->lcnbmp_na, 0, size, bits.data()) != size) {
    NtfsFailed("cannot read $Bitmap");
  }
  ClusterSet clusters(volume_->nr_clusters);
  for (std::int64_t lcn = 0; lcn < volume_->nr_clusters; ++lcn) {
    const std::uint8_t byte = bits[static_cast<std::size_t>(lcn / 8)];
    if ((byte >> (lcn % 8) & 1) != 0) clusters.Set(lcn, 1, true);
  }
  return clusters;
}

void MountedNtfs::WriteBitmap(const ClusterSet& clusters) {
  std::vector<std::uint8_t> bits(static_cast<std::size_t>((clusters.Size() + 7) / 8));
  const auto size = static_cast<s64>(bits.size());
  // What stands behind the last cluster stays.
  if (ntfs_attr_pread(volume_->lcnbmp_na, 0, size, bits.data()) != size) {
    NtfsFailed("cannot read $Bitmap");
  }
  for (std::int64_t lcn = 0; lcn < clusters.Size(); ++lcn) {
    const auto mask = static_cast<std::uint8_t>(1U << (lcn % 8));
    std::uint8_t& byte = bits[static_cast<std::size_t>(lcn / 8)];
    byte = static_cast<std::uint8_t>(clusters.Taken(lcn) ? byte | mask : byte & ~mask);
  }
  if (ntfs_attr_pwrite(volume_->lcnbmp_na, 0, size, bits.data()) != size) {
    NtfsFailed("cannot write $Bitmap");
  }
}

std::vector<PlacedRun> RunsOf(ntfs_attr* attribute) {
  if (ntfs_attr_map_whole_runlist(attribute) != 0) NtfsFailed("cannot read a run list");
  std::vector<PlacedRun> runs;
  for (const runlist_element* run = attribute->rl; run != nullptr && run->length > 0; ++run) {
    if (run->lcn >= 0) runs.push_back({run->vcn, run->lcn, run->length});
  }
  return runs;
}

void SetRuns(ntfs_attr* attribute, const std::vector<PlacedRun>& runs, std::int64_t end_vcn) {
  std::vector<runlist_element> list;
  std::int64_t vcn = 0;
  const auto add = [&](std::int64_t lcn, std::int64_t count) {
    list.push_back({vcn, lcn, count});
    vcn += count;
  };
  for (const PlacedRun& run : runs) {
    if (run.vcn > vcn) add(LCN_HOLE, run.vcn - vcn);
    add(run.lcn, run.count);
  }
  if (vcn < end_vcn) add(LCN_HOLE, end_vcn - vcn);
  add(LCN_ENOENT, 0);
  // The library later grows run lists in place up to the next 4096 bytes.
  const std::size_t bytes = (list.size() * sizeof(runlist_element) + 4095) / 4096 * 4096;
  auto* memory = static_cast<runlist_element*>(std::malloc(bytes));
  if (memory == nullptr) NtfsFailed("no memory for a run list");
  std::copy(list.begin(), list.end(), memory);
  std::free(attribute->rl);
  attribute->rl = memory;
  attribute->unused_runs = 0;
  NAttrSetFullyMapped(attribute);
  if (ntfs_attr_update_mapping_pairs(attribute, 0) != 0) NtfsFailed("cannot store a run list");
}

}  // namespace vornalux::making
