// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <utility>
#include <vector>

#include "host/mounted/smart_drive.h"

namespace vornalux {

// An entry of a scripted attribute table. raw is its six bytes as one number.
struct ScriptedAttribute {
  std::size_t index = 0;
  std::uint8_t id = 0;
  std::uint64_t raw = 0;
};

// A disk that says what it is told to, and notes what it was asked.
class ScriptedDrive final : public SmartDrive {
 public:
  struct Request {
    bool wants_data = false;
    DriveRegisters registers;
  };

  // The temperatures that it has from now on: each time attributes are read the next one, and the
  // last one for good. 0 for a reading without the attribute.
  void SetTemperatures(std::initializer_list<std::uint8_t> degrees) { temperatures_ = degrees; }
  // The attribute table beside the temperature, or instead of it.
  void SetAttributes(std::initializer_list<ScriptedAttribute> attributes) {
    attributes_ = attributes;
  }
  // Commands with this features register fail.
  void Refuse(std::uint8_t feature, ErrorCode error) { refusals_.push_back({feature, error}); }
  // What is read breaks off after so many bytes.
  void BreakOffAfter(std::size_t bytes) { bytes_ = bytes; }
  // Runs at every command, before it is answered.
  void AtEveryCommand(std::function<void()> action) { at_every_command_ = std::move(action); }

  const std::vector<Request>& Requests() const { return requests_; }
  // How often the attributes have been read.
  std::size_t Readings() const { return readings_; }

  ErrorCode Send(const DriveRegisters& registers) override;
  ErrorCode Receive(const DriveRegisters& registers, DriveSector& data) override;

 private:
  struct Refusal {
    std::uint8_t feature;
    ErrorCode error;
  };
  ErrorCode Note(bool wants_data, const DriveRegisters& registers);
  void FillAttributes(DriveSector& data);

  std::vector<std::uint8_t> temperatures_;
  std::vector<ScriptedAttribute> attributes_;
  std::vector<Refusal> refusals_;
  std::size_t bytes_ = sizeof(DriveSector);
  std::function<void()> at_every_command_;
  std::vector<Request> requests_;
  std::size_t readings_ = 0;
};

}  // namespace vornalux
