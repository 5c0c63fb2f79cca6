// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

namespace vornalux {

// A command block as SCSI devices take it.
using ScsiCommand = std::array<std::uint8_t, 16>;

// How a SCSI request ended.
struct ScsiReply {
  int refused = 0;           // errno, when the request did not get as far as to a device
  std::uint8_t status = 0;   // the device's
  std::uint16_t host = 0;    // of the adapter; 0 for good
  std::size_t received = 0;  // bytes
  std::array<std::uint8_t, 32> sense{};
  std::size_t sense_size = 0;  // bytes of it that were written
};

// An NVMe admin command that reads.
struct NvmeCommand {
  std::uint8_t opcode = 0;
  std::uint32_t namespace_id = 0;
  std::uint32_t dword10 = 0;
};

struct NvmeReply {
  int refused = 0;  // as above
  int status = 0;   // the controller's; 0 for good
};

// The node of a disk or partition: the requests that the kernel takes for it.
class DriveNode {
 public:
  virtual ~DriveNode() = default;

  virtual bool IsNvme() = 0;
  // data is empty for a command without any, else room for the answer.
  virtual ScsiReply Scsi(const ScsiCommand& command, std::span<std::uint8_t> data) = 0;
  virtual NvmeReply Nvme(const NvmeCommand& command, std::span<std::uint8_t> data) = 0;

  // The node of the whole disk that this is a part of; null when there is none to be had.
  virtual std::unique_ptr<DriveNode> WholeDisk() = 0;
};

}  // namespace vornalux
