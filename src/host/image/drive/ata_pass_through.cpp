// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/ata_pass_through.h"

#include <algorithm>
#include <cerrno>
#include <optional>

namespace vornalux {
namespace {

constexpr std::uint8_t kPassThrough16 = 0x85;
constexpr std::uint8_t kNonData = 3 << 1;
constexpr std::uint8_t kDataIn = 4 << 1;
constexpr std::uint8_t kLengthInSectors = 0x0E;  // from the drive, in blocks, by the sector count

constexpr std::uint8_t kCheckCondition = 0x02;
constexpr std::uint8_t kDriveFailed = 0x21;  // error or device fault, of the status register

// Keys of sense data.
constexpr std::uint8_t kNoSense = 0;
constexpr std::uint8_t kRecovered = 1;
constexpr std::uint8_t kNotReady = 2;
constexpr std::uint8_t kIllegalRequest = 5;

constexpr std::uint8_t kDescriptorFormat = 0x72;
constexpr std::uint8_t kFixedFormat = 0x70;
constexpr std::uint8_t kAtaReturn = 0x09;  // a descriptor with the drive's registers
constexpr std::size_t kFirstDescriptor = 8;
constexpr std::size_t kStatusInDescriptor = 13;

std::optional<std::uint8_t> SenseKey(std::span<const std::uint8_t> sense) {
  if (sense.size() < kFirstDescriptor) return std::nullopt;
  const std::uint8_t format = sense[0] & 0x7E;  // current or deferred
  if (format == kDescriptorFormat) return sense[1] & 0x0F;
  if (format == kFixedFormat) return sense[2] & 0x0F;
  return std::nullopt;
}

// The drive's status register, where the sense data has it.
std::optional<std::uint8_t> DriveStatus(std::span<const std::uint8_t> sense) {
  if ((sense[0] & 0x7E) == kFixedFormat) return sense[4];
  for (std::size_t at = kFirstDescriptor; at + 2 <= sense.size();) {
    const std::size_t length = 2 + std::size_t{sense[at + 1]};
    if (sense[at] == kAtaReturn && length > kStatusInDescriptor && at + length <= sense.size()) {
      return sense[at + kStatusInDescriptor];
    }
    at += length;
  }
  return std::nullopt;
}

ErrorCode FromSense(std::span<const std::uint8_t> sense) {
  const std::optional<std::uint8_t> key = SenseKey(sense);
  if (!key) return error::kGenFailure;
  switch (*key) {
    case kNoSense:
    case kRecovered:
      // Nothing went wrong; some bridges tell the registers all the same.
      return DriveStatus(sense).value_or(0) & kDriveFailed ? error::kGenFailure : error::kSuccess;
    case kNotReady:
      return error::kNotReady;
    case kIllegalRequest:
      return error::kNotSupported;
    default:
      return error::kGenFailure;
  }
}

}  // namespace

bool AnswersWithSector(const DriveRegisters& registers) {
  return registers.command != drive_command::kNone;
}

ScsiCommand PackAtaCommand(const DriveRegisters& registers, bool with_sector) {
  ScsiCommand command{};
  command[0] = kPassThrough16;
  command[1] = with_sector ? kDataIn : kNonData;
  command[2] = with_sector ? kLengthInSectors : 0;
  // Each register has two bytes, the first one for commands of 48 bits only.
  command[4] = registers.features;
  command[6] = registers.sector_count;
  command[8] = registers.sector_number;
  command[10] = registers.cylinder_low;
  command[12] = registers.cylinder_high;
  command[13] = registers.drive_head;
  command[14] = registers.command;
  return command;
}

ErrorCode FromRefusal(int refused) {
  switch (refused) {
    case EPERM:
    case EACCES:
      return error::kAccessDenied;
    case ENODEV:
    case ENXIO:
    case ENOMEDIUM:
      return error::kNotReady;
    case ENOTTY:
    case EINVAL:
    case EOPNOTSUPP:
    case ENOSYS:
      return error::kNotSupported;
    default:
      return error::kGenFailure;
  }
}

ErrorCode AtaResult(const ScsiReply& reply) {
  if (reply.refused != 0) return FromRefusal(reply.refused);
  if (reply.host != 0) return error::kGenFailure;
  const std::size_t size = std::min(reply.sense_size, reply.sense.size());
  if (reply.status == kCheckCondition) return FromSense(std::span(reply.sense).first(size));
  return reply.status == 0 ? error::kSuccess : error::kGenFailure;
}

}  // namespace vornalux
