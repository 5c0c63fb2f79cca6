// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/check_library.h"
#include "platform/desktop.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/raw_devices.h"
#include "platform/registry.h"
#include "platform/shell_objects.h"
#include "platform/system.h"
#include "platform/volumes.h"

namespace vornalux {

// Everything that the program can ask of an operating system, handed around by reference. The
// interfaces live as long as the host that made them.
struct Platform {
  Volumes& volumes;
  Files& files;
  Machine& machine;
  RawDevices& devices;
  Desktop& desktop;
  ShellObjects& shell;
  Registry& registry;
  System& system;
  CheckLibrary& checks;
};

}  // namespace vornalux
