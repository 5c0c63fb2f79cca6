// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "platform/machine.h"

namespace vornalux {

// The machine that the program runs on.
class WindowsMachine final : public Machine {
 public:
  WindowsMachine();
  ~WindowsMachine() override { TakeVolume({}); }
  WindowsMachine(const WindowsMachine&) = delete;
  WindowsMachine& operator=(const WindowsMachine&) = delete;

  std::string WindowsFolder() override;
  // Empty, too, for texts above 159 bytes.
  std::string ErrorText(ErrorCode code) override;
  // 0 when the system does not say.
  std::uint32_t SetPriorityClass(std::uint32_t priority_class) override;
  std::uint32_t PriorityClass() override;
  // Whatever letter it goes by, and whoever the other program belongs to.
  bool TakeVolume(const std::string& root) override;
  void KeepAwake(bool awake) override;
  bool IsSolidState(const std::string& root) override;
  double Random() override;

 private:
  std::mt19937_64 random_;
  void* taken_ = nullptr;
  std::wstring taken_name_;
};

}  // namespace vornalux
