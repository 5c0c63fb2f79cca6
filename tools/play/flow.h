// SPDX-License-Identifier: GPL-2.0-or-later
// Flows: what a user does with the program in one session, each under a name.
#pragma once

#include <vector>

namespace vornalux::play {

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

std::vector<FlowEntry>& Flows();
struct FlowRegistration {
  explicit FlowRegistration(FlowEntry entry) { Flows().push_back(entry); }
};

#define FLOW(name, tail, place)                                                         \
  static void name(Session& session);                                                   \
  static const FlowRegistration name##_registration({#name, tail, Place::place, name}); \
  static void name(Session& session)

}  // namespace vornalux::play
