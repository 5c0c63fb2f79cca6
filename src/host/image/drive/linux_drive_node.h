// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <memory>

#include "host/image/drive/drive_node.h"

namespace vornalux {

// The node of an open block device.
class LinuxDriveNode final : public DriveNode {
 public:
  // close is called at the end and keeps alive what the descriptor belongs to.
  LinuxDriveNode(int descriptor, std::function<void()> close)
      : descriptor_(descriptor), close_(std::move(close)) {}
  ~LinuxDriveNode() override {
    if (close_) close_();
  }
  LinuxDriveNode(const LinuxDriveNode&) = delete;
  LinuxDriveNode& operator=(const LinuxDriveNode&) = delete;

  bool IsNvme() override;
  ScsiReply Scsi(const ScsiCommand& command, std::span<std::uint8_t> data) override;
  NvmeReply Nvme(const NvmeCommand& command, std::span<std::uint8_t> data) override;
  std::unique_ptr<DriveNode> WholeDisk() override;

 private:
  int descriptor_;
  std::function<void()> close_;
};

}  // namespace vornalux
