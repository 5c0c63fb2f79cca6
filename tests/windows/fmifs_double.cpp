// SPDX-License-Identifier: GPL-2.0-or-later
// Stands in for the system's library of file-system utilities.
#include "windows/fmifs_double.h"

#include <windows.h>

#include <cstring>
#include <cwchar>

namespace {

using Callback = BOOLEAN WINAPI(int command, DWORD modifier, void* argument);

vornalux::test::CheckLog check_log;

struct Output {
  DWORD lines;
  const char* text;
};

class Teller {
 public:
  explicit Teller(Callback* callback) : callback_(callback) {}

  // False once the callback has asked for an end.
  bool Tell(int command, void* argument) {
    ++check_log.calls;
    check_log.last_answer = callback_(command, 0, argument);
    return check_log.last_answer != FALSE;
  }
  bool TellText(const char* text) {
    Output output{1, text};
    return Tell(14, &output);
  }

 private:
  Callback* callback_;
};

void GoWell(Teller teller) {
  DWORD percent = 42;
  BOOLEAN done = TRUE;
  if (!teller.TellText("The volume is called T\x81r.\r\n\0not this")) return;
  if (!teller.Tell(0, &percent)) return;
  if (!teller.Tell(5, nullptr)) return;
  teller.Tell(11, &done);
}

void FindDamage(Teller teller) {
  BOOLEAN done = FALSE;
  if (teller.TellText("The volume is dirty.\r\n")) teller.Tell(11, &done);
}

// In a flow that cancels a check; not in the first one, while nobody can see a button yet. The
// library is loaded anew for each.
bool AsksForPatience() {
  char flow[64] = {};
  GetEnvironmentVariableA("VORNALUX_FLOW", flow, sizeof flow);
  const bool first = GetEnvironmentVariableA("VORNALUX_CHECKED_D", nullptr, 0) == 0;
  SetEnvironmentVariableA("VORNALUX_CHECKED_D", "1");
  return std::strcmp(flow, "CheckCanBeCancelled") == 0 && !first;
}

// Goes on until somebody has had enough.
void BePatient(Teller teller) {
  BOOLEAN done = TRUE;
  DWORD percent = 0;
  while (teller.TellText("Still checking.\r\n") && teller.Tell(0, &percent)) {
  }
  teller.Tell(11, &done);
}

// Text up to the last byte of a page with nothing behind it.
char* TextAtTheEdge(std::size_t length, bool terminated) {
  constexpr std::size_t kPage = 65536;
  auto* memory = static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
  VirtualAlloc(memory, kPage, MEM_COMMIT, PAGE_READWRITE);
  char* text = memory + kPage - length - (terminated ? 1 : 0);
  std::memset(text, 'x', length);
  return text;
}

void BeNasty(Teller teller) {
  auto* nowhere = reinterpret_cast<void*>(16);
  BOOLEAN done = FALSE;
  teller.Tell(0, nullptr);
  teller.Tell(0, nowhere);
  teller.Tell(11, nowhere);
  teller.Tell(14, nullptr);
  teller.Tell(14, nowhere);
  teller.TellText(nullptr);
  teller.TellText(static_cast<const char*>(nowhere));
  teller.TellText(TextAtTheEdge(20, false));
  teller.TellText(TextAtTheEdge(20, true));
  teller.TellText(TextAtTheEdge(255, false));
  teller.TellText("");
  teller.Tell(11, &done);
}

}  // namespace

extern "C" {

__declspec(dllexport) void WINAPI
    Chkdsk(const wchar_t* root, const wchar_t* file_system, BOOLEAN correct_errors, BOOLEAN verbose,
           BOOLEAN only_if_dirty, BOOLEAN scan_drive, void*, void*, Callback* callback) {
  check_log = {};
  std::wcsncpy(check_log.root, root, 15);
  std::wcsncpy(check_log.file_system, file_system, 15);
  check_log.correct_errors = correct_errors;
  check_log.verbose = verbose;
  check_log.only_if_dirty = only_if_dirty;
  check_log.scan_drive = scan_drive;
  const bool patient = root[0] == L'D' && AsksForPatience();
  auto* const check = std::wcscmp(file_system, L"NASTY") == 0 ? BeNasty
                      : root[0] == L'R'                       ? FindDamage
                      : patient                               ? BePatient
                                                              : GoWell;
  check(Teller(callback));
}

__declspec(dllexport) const vornalux::test::CheckLog* WINAPI LastCheck() { return &check_log; }
}
