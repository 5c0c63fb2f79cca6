// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux::test {

class Session;

// Where the program is started: alone in its folder, or with a library for disk checks beside it;
// or alone and on the drives that Wine has.
enum class Place { Alone, WithCheckLibrary, OnRealDrives };

struct FlowEntry {
  const char* name;
  const char* tail;  // of the program's command line
  Place place;
  void (*body)(Session& session);
  unsigned dpi = 96;
};

}  // namespace vornalux::test
