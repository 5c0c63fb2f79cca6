// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"

namespace vornalux {

namespace priority {
inline constexpr std::uint32_t kNormal = 32;
inline constexpr std::uint32_t kIdle = 64;
inline constexpr std::uint32_t kAboveNormal = 32768;
}  // namespace priority

// The machine around the volumes.
class Machine {
 public:
  virtual ~Machine() = default;

  // "C:\Windows", without a backslash at the end; empty when there is none.
  virtual std::string WindowsFolder() = 0;

  // The system's text for an error code; may end in CR LF. Empty when there is none.
  virtual std::string ErrorText(ErrorCode code) = 0;

  // The priority class of this process; 0 when the system does not say.
  virtual std::uint32_t PriorityClass() = 0;
  // Sets the priority class of this process and returns the one in force afterwards.
  virtual std::uint32_t SetPriorityClass(std::uint32_t priority_class) = 0;

  // Takes the volume with this root ("C:\") for the program's work, in place of the one that it
  // had taken before; an empty root only gives that one up. False: another program of ours has it,
  // and what was taken before stays. Hosts that keep two from one volume by other means say true.
  virtual bool TakeVolume(const std::string& /*root*/) { return true; }

  // Whether the machine is kept from falling asleep by itself. Hosts that see to it by other means
  // do nothing.
  virtual void KeepAwake(bool /*awake*/) {}

  // Whether the volume with this root lies on a disk that is known to find any place as fast as any
  // other.
  virtual bool IsSolidState(const std::string& /*root*/) { return false; }

  // A random number in [0, 1).
  virtual double Random() = 0;
};

}  // namespace vornalux
