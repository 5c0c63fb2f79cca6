// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/linux_drive_node.h"

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"

namespace vornalux {
namespace {

// A disk that answers nothing holds the run up for so long, once every half a minute.
constexpr unsigned kPatience = 5000;  // milliseconds

}  // namespace

bool LinuxDriveNode::IsNvme() { return ::ioctl(descriptor_, NVME_IOCTL_ID) > 0; }

ScsiReply LinuxDriveNode::Scsi(const ScsiCommand& command, std::span<std::uint8_t> data) {
  ScsiReply reply;
  ScsiCommand block = command;
  sg_io_hdr request = {};
  request.interface_id = 'S';
  request.dxfer_direction = data.empty() ? SG_DXFER_NONE : SG_DXFER_FROM_DEV;
  request.cmd_len = static_cast<unsigned char>(block.size());
  request.cmdp = block.data();
  request.mx_sb_len = static_cast<unsigned char>(reply.sense.size());
  request.sbp = reply.sense.data();
  request.dxfer_len = static_cast<unsigned>(data.size());
  request.dxferp = data.data();
  request.timeout = kPatience;
  if (::ioctl(descriptor_, SG_IO, &request) != 0) {
    reply.refused = errno;
    return reply;
  }
  reply.status = request.status;
  reply.host = request.host_status;
  reply.sense_size = request.sb_len_wr;
  const auto missing = static_cast<std::size_t>(std::max(request.resid, 0));
  reply.received = data.size() - std::min(missing, data.size());
  return reply;
}

NvmeReply LinuxDriveNode::Nvme(const NvmeCommand& command, std::span<std::uint8_t> data) {
  nvme_admin_cmd request = {};
  request.opcode = command.opcode;
  request.nsid = command.namespace_id;
  request.addr = reinterpret_cast<std::uintptr_t>(data.data());
  request.data_len = static_cast<std::uint32_t>(data.size());
  request.cdw10 = command.dword10;
  request.timeout_ms = kPatience;
  const int status = ::ioctl(descriptor_, NVME_IOCTL_ADMIN_CMD, &request);
  if (status < 0) return {.refused = errno, .status = 0};
  return {.refused = 0, .status = status};
}

std::unique_ptr<DriveNode> LinuxDriveNode::WholeDisk() {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0 || !S_ISBLK(status.st_mode)) return nullptr;
  const std::string whole = WholeDiskOf(kSysfs, NumbersOf(status.st_rdev));
  const std::string path = whole.empty() ? std::string() : DeviceNodeOf(kSysfs, whole);
  if (path.empty()) return nullptr;
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  auto node = std::make_unique<LinuxDriveNode>(descriptor, [descriptor] { ::close(descriptor); });
  // Names in /dev are anybody's.
  if (::fstat(descriptor, &status) != 0 || !S_ISBLK(status.st_mode) ||
      NumbersOf(status.st_rdev) != whole) {
    return nullptr;
  }
  return node;
}

}  // namespace vornalux
