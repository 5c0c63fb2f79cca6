// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/block_drive.h"

#include <algorithm>
#include <utility>

#include "host/image/drive/ata_pass_through.h"
#include "host/image/drive/nvme_health.h"

namespace vornalux {
namespace {

bool IsSmart(const DriveRegisters& registers, std::uint8_t feature) {
  return registers.command == drive_command::kSmart && registers.features == feature;
}

// The node would not let the command through, whatever it was.
bool WasRefused(ErrorCode error) {
  return error == error::kNotSupported || error == error::kAccessDenied;
}

}  // namespace

ErrorCode BlockDrive::Send(const DriveRegisters& registers) { return Ask(registers, nullptr); }

ErrorCode BlockDrive::Receive(const DriveRegisters& registers, DriveSector& data) {
  data = {};
  return Ask(registers, &data);
}

// Most kernels let nothing of the kind pass through a partition; the whole disk then stays the one
// that is asked.
ErrorCode BlockDrive::Ask(const DriveRegisters& registers, DriveSector* data) {
  const auto ask = [&] {
    return node_->IsNvme() ? AskNvme(registers, data) : AskAta(registers, data);
  };
  const ErrorCode error = ask();
  if (!WasRefused(error) || std::exchange(whole_disk_tried_, true)) return error;
  std::unique_ptr<DriveNode> whole = node_->WholeDisk();
  if (whole == nullptr) return error;
  node_ = std::move(whole);
  return ask();
}

ErrorCode BlockDrive::AskAta(const DriveRegisters& registers, DriveSector* data) {
  const bool with_sector = data != nullptr && AnswersWithSector(registers);
  DriveSector sector{};
  const auto room = with_sector ? std::span<std::uint8_t>(sector) : std::span<std::uint8_t>();
  const ScsiReply reply = node_->Scsi(PackAtaCommand(registers, with_sector), room);
  const ErrorCode error = AtaResult(reply);
  if (error == error::kSuccess && with_sector) {
    std::copy_n(sector.begin(), std::min(reply.received, sector.size()), data->begin());
  }
  return error;
}

// Such a drive knows none of the commands. It keeps its log whether asked to or not.
ErrorCode BlockDrive::AskNvme(const DriveRegisters& registers, DriveSector* data) {
  if (data == nullptr && IsSmart(registers, smart_feature::kEnable)) return error::kSuccess;
  if (data == nullptr || !IsSmart(registers, smart_feature::kReadAttributes)) {
    return error::kInvalidFunction;
  }
  DriveSector log{};
  const NvmeReply reply = node_->Nvme(HealthLogCommand(), log);
  if (reply.refused != 0) return FromRefusal(reply.refused);
  if (reply.status != 0) return error::kGenFailure;
  *data = AttributesFromHealthLog(log);
  return error::kSuccess;
}

}  // namespace vornalux
