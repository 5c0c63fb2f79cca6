// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/scripted_drive.h"

#include <algorithm>
#include <string_view>

namespace vornalux {
namespace {

constexpr std::string_view kModel = "SCRIPTED DRIVE";

void PutEntry(DriveSector& data, const ScriptedAttribute& attribute) {
  const std::size_t at = smart_table::kFirstEntry + attribute.index * smart_table::kEntrySize;
  data.at(at) = attribute.id;
  for (std::size_t i = 0; i < 6; ++i) {
    data.at(at + smart_table::kRawOffset + i) = static_cast<std::uint8_t>(attribute.raw >> (i * 8));
  }
}

void FillIdentity(DriveSector& data) {
  constexpr std::size_t kModelAt = 54;  // bytes, in words with their halves swapped
  std::fill_n(data.begin() + 20, 74, ' ');
  for (std::size_t i = 0; i < kModel.size(); ++i) {
    data[kModelAt + (i ^ 1)] = static_cast<std::uint8_t>(kModel[i]);
  }
}

}  // namespace

ErrorCode ScriptedDrive::Note(bool wants_data, const DriveRegisters& registers) {
  if (at_every_command_) at_every_command_();
  requests_.push_back({wants_data, registers});
  const auto refusal =
      std::find_if(refusals_.begin(), refusals_.end(),
                   [&](const Refusal& planned) { return planned.feature == registers.features; });
  return refusal == refusals_.end() ? error::kSuccess : refusal->error;
}

ErrorCode ScriptedDrive::Send(const DriveRegisters& registers) { return Note(false, registers); }

ErrorCode ScriptedDrive::Receive(const DriveRegisters& registers, DriveSector& data) {
  data = {};
  const ErrorCode refused = Note(true, registers);
  if (refused != error::kSuccess) return refused;
  if (registers.command == drive_command::kNone) {
    FillIdentity(data);
  } else if (registers.features == smart_feature::kReadAttributes) {
    FillAttributes(data);
  }
  if (bytes_ < data.size()) {
    std::fill(data.begin() + static_cast<std::ptrdiff_t>(bytes_), data.end(), std::uint8_t{0});
  }
  return error::kSuccess;
}

void ScriptedDrive::FillAttributes(DriveSector& data) {
  if (!temperatures_.empty()) {
    const std::uint8_t degrees = temperatures_[std::min(readings_, temperatures_.size() - 1)];
    if (degrees != 0) PutEntry(data, {1, smart_table::kTemperature, degrees});
  }
  ++readings_;
  for (const ScriptedAttribute& attribute : attributes_) PutEntry(data, attribute);
}

}  // namespace vornalux
