// SPDX-License-Identifier: GPL-2.0-or-later
#include "play/session.h"

#include <cstdlib>

#include "host/windows/system_headers.h"
#include "play/flow.h"

namespace vornalux::play {
namespace {

HANDLE ready = nullptr;  // the program may run
Session* session_of_the_program = nullptr;

volatile bool has_ended = false;
unsigned end_code = 0;

}  // namespace

std::vector<FlowEntry>& Flows() {
  static std::vector<FlowEntry> flows;
  return flows;
}

std::string Setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

Session::Session() : machine(Setting("VORNALUX_FLOW_IMAGE")) { session_of_the_program = this; }

void Session::Start() { SetEvent(ready); }

bool Session::HasEnded() const { return has_ended; }

unsigned Session::End() {
  screen.Until("the program ends", [this] { return HasEnded(); });
  return end_code;
}

void TakeCallsOver(bool with_drives) {
  ready = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (with_drives) PatchDriveCalls();
  PatchSessionCalls();
}

ImaginaryMachine& MachineOfTheProgram() {
  WaitForSingleObject(ready, INFINITE);
  return session_of_the_program->machine;
}

Screen& ScreenOfTheProgram() {
  WaitForSingleObject(ready, INFINITE);
  return session_of_the_program->screen;
}

void EndOfTheProgram(unsigned code) {
  end_code = code;
  has_ended = true;
  ScreenOfTheProgram().Stir();
  // Its windows still answer.
  MSG message;
  for (;;) {
    MsgWaitForMultipleObjects(0, nullptr, FALSE, INFINITE, QS_SENDMESSAGE);
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
}

std::uint64_t SeedOfTheProgram() { return std::uint64_t{GetCurrentProcessId()} << 32; }

}  // namespace vornalux::play
