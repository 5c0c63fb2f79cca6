// SPDX-License-Identifier: GPL-2.0-or-later
// The system's calls that are about the session: noted, scripted, or let through with a word to
// whoever watches the windows.
#include "host/windows/system_headers.h"

// After the header that it needs.
#include <shellapi.h>

#include <string>

#include "host/windows/windows_text.h"
#include "play/import_patch.h"
#include "play/session.h"

namespace vornalux::play {
namespace {

HWND WINAPI CreateDialogWatched(HINSTANCE module, const wchar_t* id, HWND owner, DLGPROC procedure,
                                LPARAM parameter) {
  ScreenOfTheProgram().WatchThisThread();
  return CreateDialogParamW(module, id, owner, procedure, parameter);
}

BOOL WINAPI PeekWatched(MSG* message, HWND window, UINT first, UINT last, UINT remove) {
  const BOOL found = PeekMessageW(message, window, first, last, remove);
  ScreenOfTheProgram().Stir();
  return found;
}

BOOL WINAPI GetWatched(MSG* message, HWND window, UINT first, UINT last) {
  ScreenOfTheProgram().Stir();
  return GetMessageW(message, window, first, last);
}

BOOL WINAPI NoteMenuItem(HMENU menu, UINT id, UINT state) {
  const BOOL before = EnableMenuItem(menu, id, state);
  ScreenOfTheProgram().NoteMenu(static_cast<int>(id), (state & MF_GRAYED) == 0);
  return before;
}

UINT_PTR WINAPI NoteTimer(HWND window, UINT_PTR id, UINT interval, TIMERPROC procedure) {
  ScreenOfTheProgram().NoteTimer(window, id, interval);
  return SetTimer(window, id, interval, procedure);
}

BOOL WINAPI NoteTimerEnd(HWND window, UINT_PTR id) {
  ScreenOfTheProgram().NoteTimer(window, id, 0);
  return KillTimer(window, id);
}

void WINAPI EndByCall(UINT code) { EndOfTheProgram(code); }
void __cdecl EndByReturn(int code) { EndOfTheProgram(static_cast<unsigned>(code)); }

BOOL WINAPI ScriptedVersion(OSVERSIONINFOA* version) {
  const BOOL known = GetVersionExA(version);
  if (MachineOfTheProgram().windows_2000) {
    version->dwMajorVersion = 5;
    version->dwMinorVersion = 0;
  }
  return known;
}

BOOL WINAPI ScriptedAdministratorTest() { return MachineOfTheProgram().administrator; }

FARPROC WINAPI FindProcedure(HMODULE library, const char* name) {
  constexpr ULONG_PTR kAdministratorTest = 680;
  if (reinterpret_cast<ULONG_PTR>(name) == kAdministratorTest &&
      library == GetModuleHandleA("shell32.dll")) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(ScriptedAdministratorTest));
  }
  return GetProcAddress(library, name);
}

BOOL WINAPI NoteSessionEnd(UINT flags, DWORD reason) {
  MachineOfTheProgram().session_ends.push_back(std::uint64_t{reason} << 32 | flags);
  return TRUE;
}

// The program's own folder, where a double of the library for disk checks may be.
UINT WINAPI SystemFolder(wchar_t* out, UINT room) {
  const DWORD length = GetModuleFileNameW(nullptr, out, room);
  const std::wstring path(out, length);
  out[path.rfind(L'\\')] = L'\0';
  return static_cast<UINT>(path.rfind(L'\\'));
}

BOOL WINAPI NoteTray(DWORD message, NOTIFYICONDATAA* record) {
  const std::string balloon = (record->uFlags & NIF_INFO) != 0 ? FromAnsi(record->szInfo) : "";
  MachineOfTheProgram().tray.push_back({.message = message,
                                        .record_size = record->cbSize,
                                        .id = record->uID,
                                        .flags = record->uFlags,
                                        .callback = record->uCallbackMessage,
                                        .tip = FromAnsi(record->szTip),
                                        .balloon = balloon});
  return MachineOfTheProgram().notification_area;
}

HINSTANCE WINAPI NotePage(HWND, const wchar_t*, const wchar_t* file, const wchar_t*, const wchar_t*,
                          INT) {
  MachineOfTheProgram().pages.push_back(FromWide(file));
  return reinterpret_cast<HINSTANCE>(INT_PTR{33});
}

// Counters that stand still, so that the program's random numbers are known.
BOOL WINAPI StandingCounter(LARGE_INTEGER* count) {
  count->QuadPart = 0;
  return TRUE;
}
DWORD WINAPI StandingTicks() { return 0; }

}  // namespace

void PatchSessionCalls() {
  Patch("CreateDialogParamW", CreateDialogWatched);
  Patch("PeekMessageW", PeekWatched);
  Patch("GetMessageW", GetWatched);
  Patch("EnableMenuItem", NoteMenuItem);
  Patch("SetTimer", NoteTimer);
  Patch("KillTimer", NoteTimerEnd);
  Patch("ExitProcess", EndByCall);
  Patch("exit", EndByReturn);
  Patch("GetVersionExA", ScriptedVersion);
  Patch("GetProcAddress", FindProcedure);
  Patch("ExitWindowsEx", NoteSessionEnd);
  Patch("Shell_NotifyIconA", NoteTray);
  Patch("GetSystemDirectoryW", SystemFolder);
  Patch("ShellExecuteW", NotePage);
  Patch("QueryPerformanceCounter", StandingCounter);
  Patch("GetTickCount", StandingTicks);
}

}  // namespace vornalux::play
