// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <span>

#include "host/image/drive/drive_node.h"
#include "host/mounted/smart_drive.h"

namespace vornalux {

// The disk behind a block device, asked through the kernel.
class BlockDrive final : public SmartDrive {
 public:
  explicit BlockDrive(std::unique_ptr<DriveNode> node) : node_(std::move(node)) {}

  ErrorCode Send(const DriveRegisters& registers) override;
  ErrorCode Receive(const DriveRegisters& registers, DriveSector& data) override;

 private:
  ErrorCode Ask(const DriveRegisters& registers, DriveSector* data);
  ErrorCode AskAta(const DriveRegisters& registers, DriveSector* data);
  ErrorCode AskNvme(const DriveRegisters& registers, DriveSector* data);

  std::unique_ptr<DriveNode> node_;
  bool whole_disk_tried_ = false;
};

}  // namespace vornalux
