// SPDX-License-Identifier: GPL-2.0-or-later
// Runs inside the guest of tools/nt: carries out the lines of JOB.TXT in its own folder, then
// restarts the machine. What it says goes to the serial line of the machine, each line after
// "NT: ". In a line {name} is the drive, "C:", of the volume with that name in NAMES.TXT.
//   job NAME ARGUMENTS  the program with these arguments until its run has ended; NAME.LOG is its
//                       log, NAME.TXT its report; then Exit
//   open ARGUMENTS      the program, left to the lines that follow
//   press TEXT          a button or menu item of it, as soon as it is enabled
//   says TEXT           until a window of it says so
//   picture NAME        of the screen, taken outside
//   gone                until it has ended
//   hold N DRIVE        every Nth file is open without sharing, every second of them mapped, until
//   release
//   ask DRIVE           the driver of a FAT volume, see driver_asks.h
//   PROGRAM ...         another program until it ends
// A box that no line presses a button of is told and closed.
#include <windows.h>
#include <winternl.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "guest/driver_asks.h"
#include "guest/guest_windows.h"
#include "host/windows/ui/resource.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_volumes.h"

extern "C" NTSTATUS NTAPI NtShutdownSystem(int action);
extern "C" NTSTATUS NTAPI RtlAdjustPrivilege(ULONG privilege, BOOLEAN enable, BOOLEAN thread,
                                             PBOOLEAN was);

namespace vornalux::guest {
namespace {

constexpr DWORD kPatience = 600000;  // milliseconds of a guest that is slow by nature
constexpr DWORD kPoll = 100;

std::string folder;                         // with a backslash at its end
std::map<std::string, std::string> drives;  // by name
std::vector<HANDLE> held;

void Say(const std::string& text) { OutputDebugStringA(("NT: " + text + "\n").c_str()); }

void SayError(const std::string& what) {
  Say("FAILED " + what + ", error " + std::to_string(GetLastError()));
}

std::wstring Wide(const std::string& text) {
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
  std::wstring out(static_cast<std::size_t>(std::max(size, 1)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, out.data(), size);
  out.pop_back();
  return out;
}

std::vector<std::string> Lines(const std::string& name) {
  std::ifstream file(folder + name);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

// Volumes are told apart by their serial numbers; the letters are the system's choice.
void FindDrives() {
  std::map<DWORD, std::string> letters;
  for (char letter = 'C'; letter <= 'Z'; ++letter) {
    const std::string drive{letter, ':'};
    const std::string root = drive + "\\";
    char label[100] = {}, system[100] = {};
    DWORD serial = 0;
    const UINT type = GetDriveTypeA(root.c_str());
    if (type != DRIVE_FIXED && type != DRIVE_CDROM) continue;
    if (GetVolumeInformationA(root.c_str(), label, 99, &serial, nullptr, nullptr, system, 99)) {
      letters[serial] = drive;
    }
    char number[16];
    std::snprintf(number, sizeof number, "%08lx", static_cast<unsigned long>(serial));
    Say("drive " + drive + " type " + std::to_string(type) + " " + system + " " + number);
  }
  for (const std::string& line : Lines("NAMES.TXT")) {
    const std::size_t blank = line.find(' ');
    const auto found = letters.find(std::stoul(line.substr(blank + 1), nullptr, 16));
    if (found == letters.end()) {
      Say("FAILED no drive has the volume " + line);
    } else {
      drives[line.substr(0, blank)] = found->second;
      Say("volume " + line.substr(0, blank) + " is " + found->second);
    }
  }
}

std::string WithDrives(std::string line) {
  for (const auto& [name, drive] : drives) {
    const std::string wanted = "{" + name + "}";
    for (std::size_t at; (at = line.find(wanted)) != std::string::npos;) {
      line.replace(at, wanted.size(), drive);
    }
  }
  return line;
}

struct Process {
  HANDLE handle = nullptr;
  DWORD id = 0;
};

bool Start(const std::string& line, Process& process) {
  STARTUPINFOA info{};
  info.cb = sizeof info;
  info.dwFlags = STARTF_USESHOWWINDOW;
  info.wShowWindow = SW_SHOWNORMAL;
  PROCESS_INFORMATION started;
  std::string text = line;
  if (!CreateProcessA(nullptr, text.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(),
                      &info, &started)) {
    SayError("to start " + line);
    return false;
  }
  CloseHandle(started.hThread);
  process = {started.hProcess, started.dwProcessId};
  return true;
}

bool Gone(const Process& process) { return WaitForSingleObject(process.handle, 0) != WAIT_TIMEOUT; }

// Until holds() or the process has ended; false when it never comes.
template <typename Condition>
bool Await(const Process& process, const std::string& what, Condition holds) {
  for (const DWORD start = GetTickCount(); GetTickCount() - start < kPatience; Sleep(kPoll)) {
    if (holds()) return true;
    if (Gone(process)) break;
  }
  Say("FAILED waiting for " + what);
  return false;
}

void CloseBox(const Process& process) {
  const HWND box = BoxOf(process.id);
  if (box == nullptr) return;
  Say("box: " + BoxText(box));
  if (!PostMessageW(box, WM_COMMAND, IDOK, 0)) return;
  PostMessageW(box, WM_CLOSE, 0, 0);
  for (int i = 0; i < 50 && IsWindow(box); ++i) Sleep(kPoll);
}

template <typename Ask>
bool AwaitGone(Process& process, Ask ask) {
  const bool gone = Await(process, "the end of the program", [&] {
    CloseBox(process);
    ask();
    return Gone(process);
  });
  DWORD code = 0;
  GetExitCodeProcess(process.handle, &code);
  if (gone) Say("exit code " + std::to_string(code));
  if (!gone) TerminateProcess(process.handle, 99);
  CloseHandle(process.handle);
  process = {};
  return gone;
}

bool AwaitGone(Process& process) {
  return AwaitGone(process, [] {});
}

void SaveLog(const Process& process, const std::string& name) {
  const HWND window = WindowWith(process.id, IDC_LOG);
  if (window == nullptr) return;
  std::ofstream(folder + name + ".LOG", std::ios::binary)
      << Utf8(TextOf(GetDlgItem(window, IDC_LOG)));
}

// By the dialog of the system, whose box for the name has one of two numbers.
void SaveReport(const Process& process, const std::string& name) {
  if (!Press(process.id, L"Report")) return Say("no report of " + name);
  const std::string path = folder + name + ".TXT";
  HWND edit = nullptr;
  Await(process, "the dialog for the report", [&] {
    for (const HWND window : ShownWindows(process.id)) {
      for (const int id : {0x480, 0x47C}) {
        if (GetDlgItem(window, IDOK) != nullptr && edit == nullptr) edit = GetDlgItem(window, id);
      }
    }
    return edit != nullptr;
  });
  if (edit == nullptr) return;
  const HWND dialog = GetAncestor(edit, GA_ROOT);
  SendMessageW(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(Wide(path).c_str()));
  PostMessageW(dialog, WM_COMMAND, IDOK, 0);
  Await(process, "the report " + path, [&] { return !IsWindow(dialog); });
}

bool Busy(const Process& process) {
  const HWND window = WindowWith(process.id, IDC_MAP);
  return window == nullptr || MenuEnabled(window, IDM_STOP) || !MenuEnabled(window, IDM_EXIT);
}

// A run has ended when its result is told and the menu is open again; a job that was refused leaves
// the launcher alone, with nothing to wait for but a box.
void Job(const std::string& name, const std::string& arguments) {
  Process process;
  if (!Start(folder + "vornalux.exe " + arguments, process)) return;
  const DWORD start = GetTickCount();
  int refused = 0;  // for how long nothing has come after a box
  const bool ended = Await(process, "the job " + name, [&] {
    if (BoxOf(process.id) != nullptr) {
      CloseBox(process);
      refused = 1;
    }
    const HWND main = WindowWith(process.id, IDC_MAP);
    constexpr int kLong = 50;
    if (main == nullptr) return refused > 0 && ++refused > kLong;
    return !Busy(process) && !TextOf(GetDlgItem(main, IDC_RESULT_LINE)).empty();
  });
  if (Gone(process)) {
    AwaitGone(process);
    return;
  }
  const HWND main = WindowWith(process.id, IDC_MAP);
  if (ended && main != nullptr) {
    Say("result " + name + " after " + std::to_string(GetTickCount() - start) +
        " ms: " + Utf8(TextOf(GetDlgItem(main, IDC_RESULT_LINE))));
    SaveReport(process, name);
  }
  SaveLog(process, name);
  if (main == nullptr) {
    if (const HWND launcher = WindowWith(process.id, IDC_VOLUMES)) {
      PostMessageW(launcher, WM_CLOSE, 0, 0);
    }
  }
  // What is pressed while the report is being made is not heard.
  AwaitGone(process, [&] {
    if (main != nullptr && !Busy(process)) Press(process.id, L"Exit");
  });
}

// The host presses Scroll Lock when it has taken the picture.
void Picture(const std::string& name) {
  const SHORT before = GetKeyState(VK_SCROLL);
  GetAsyncKeyState(VK_SCROLL);
  Say("picture " + name);
  for (const DWORD start = GetTickCount(); GetTickCount() - start < 15000; Sleep(kPoll)) {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
    if (GetAsyncKeyState(VK_SCROLL) != 0 || GetKeyState(VK_SCROLL) != before) return;
  }
  Say("nobody answers for pictures");
}

void Hold(const std::wstring& in, int every, int& files) {
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileW((in + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      Hold(in + L"\\" + name, every, files);
    } else if (++files % every == 0) {
      const HANDLE file = CreateFileW((in + L"\\" + name).c_str(), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
      if (file == INVALID_HANDLE_VALUE) {
        SayError("to hold " + Utf8(name));
        continue;
      }
      held.push_back(file);
      if (held.size() % 2 != 0 || entry.nFileSizeLow == 0) continue;
      const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
      if (mapping == nullptr) continue;
      held.push_back(mapping);
      const volatile char* view =
          static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
      if (view != nullptr) static_cast<void>(*view);
    }
  } while (FindNextFileW(search, &entry));
  FindClose(search);
}

void AskDriver(const std::string& drive) {
  const auto make = [&](const char* name, DWORD size) {
    const HANDLE file =
        CreateFileA((drive + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    const std::string bytes(size, '7');
    DWORD done = 0;
    WriteFile(file, bytes.data(), size, &done, nullptr);
    FlushFileBuffers(file);
    CloseHandle(file);
  };
  make("\\ASKED.BIN", 20000);
  make("\\ASKED.NIL", 0);
  CreateDirectoryA((drive + "\\ASKED.DIR").c_str(), nullptr);
  WindowsVolumes volumes;
  WindowsFiles files;
  const std::vector<std::string> answers = AskFatDriver(volumes, files, drive);
  for (const std::string& answer : answers) Say("answer " + answer);
  if (answers != kFatDriverAnswers) Say("FAILED the driver answers otherwise than it did");
  DeleteFileA((drive + "\\ASKED.BIN").c_str());
  DeleteFileA((drive + "\\ASKED.NIL").c_str());
  RemoveDirectoryA((drive + "\\ASKED.DIR").c_str());
}

void CarryOut(const std::string& line, Process& process) {
  Say("line " + line);
  const std::size_t blank = std::min(line.find(' '), line.size());
  const std::string verb = line.substr(0, blank);
  const std::string rest = line.substr(std::min(blank + 1, line.size()));
  const std::wstring wide = Wide(rest);
  if (verb == "job") {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    Job(rest.substr(0, end), rest.substr(std::min(end + 1, rest.size())));
  } else if (verb == "open") {
    Start(folder + "vornalux.exe " + rest, process);
  } else if (verb == "press") {
    Await(process, line, [&] { return Press(process.id, wide); });
  } else if (verb == "says") {
    Await(process, line, [&] { return Says(process.id, wide); });
  } else if (verb == "picture") {
    Picture(rest);
  } else if (verb == "gone") {
    AwaitGone(process);
  } else if (verb == "hold") {
    int files = 0;
    Hold(wide.substr(wide.find(L' ') + 1), std::max(std::stoi(rest), 1), files);
    Say("held " + std::to_string(held.size()) + " of " + std::to_string(files));
  } else if (verb == "ask") {
    AskDriver(rest);
  } else if (verb == "release") {
    for (const HANDLE handle : held) CloseHandle(handle);
    held.clear();
  } else if (Process other; Start(folder + line, other)) {
    AwaitGone(other);
  }
}

int Run() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH - 1);
  folder = path;
  folder.resize(folder.rfind('\\') + 1);
  Say("start in " + folder);
  FindDrives();
  Process process;
  for (const std::string& line : Lines("JOB.TXT")) CarryOut(WithDrives(line), process);
  if (process.handle != nullptr && !Gone(process)) Say("FAILED the program is still open");
  Say("end");
  BOOLEAN was = FALSE;
  constexpr ULONG kShutdownPrivilege = 19;
  RtlAdjustPrivilege(kShutdownPrivilege, TRUE, FALSE, &was);
  constexpr int kRestart = 1;
  return NtShutdownSystem(kRestart) == 0 ? 0 : 1;
}

}  // namespace
}  // namespace vornalux::guest

int main() { return vornalux::guest::Run(); }
