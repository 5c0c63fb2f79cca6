// SPDX-License-Identifier: GPL-2.0-or-later
// start_flows FOLDER [FLOW ...]: plays flows, all by default, each in a new process of
// vornalux.exe, in a folder inside of FOLDER, with flows.dll, from beside this program, loaded into
// it. Exit code: how many failed.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "play/flow.h"

namespace {

using vornalux::play::FlowEntry;

constexpr DWORD kLongestFlowMilliseconds = 300000;

// Loads the library into a process that has not begun.
bool Load(HANDLE process, const std::string& library) {
  void* const there =
      VirtualAllocEx(process, nullptr, library.size() + 1, MEM_COMMIT, PAGE_READWRITE);
  if (!WriteProcessMemory(process, there, library.c_str(), library.size() + 1, nullptr)) {
    return false;
  }
  const auto load = reinterpret_cast<LPTHREAD_START_ROUTINE>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "LoadLibraryA")));
  const HANDLE thread = CreateRemoteThread(process, nullptr, 0, load, there, 0, nullptr);
  DWORD module = 0;
  const bool loaded = thread != nullptr &&
                      WaitForSingleObject(thread, kLongestFlowMilliseconds) == WAIT_OBJECT_0 &&
                      GetExitCodeThread(thread, &module) && module != 0;
  CloseHandle(thread);
  return loaded;
}

// What programs that start from here on find as the screen's resolution.
void SetResolution(DWORD dpi) {
  HKEY key;
  if (RegCreateKeyA(HKEY_CURRENT_USER, "Control Panel\\Desktop", &key) != ERROR_SUCCESS) return;
  RegSetValueExA(key, "LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dpi), sizeof dpi);
  RegCloseKey(key);
}

// The process's exit code; never 0 when it hung.
DWORD Run(const FlowEntry& flow, const std::string& folder, const std::string& library) {
  SetEnvironmentVariableA("VORNALUX_FLOW", flow.name);
  SetResolution(flow.dpi);
  const bool checked = flow.place == vornalux::play::Place::WithCheckLibrary;
  std::string line =
      "\"" + folder + (checked ? "\\checked" : "\\alone") + "\\vornalux.exe\" " + flow.tail;
  STARTUPINFOA start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process;
  if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                      nullptr, &start, &process)) {
    std::printf("cannot start %s: error %lu\n", line.c_str(), GetLastError());
    return 1;
  }
  DWORD code = 1;
  if (!Load(process.hProcess, library)) {
    std::printf("cannot load %s\n", library.c_str());
    TerminateProcess(process.hProcess, 1);
  } else {
    ResumeThread(process.hThread);
    if (WaitForSingleObject(process.hProcess, kLongestFlowMilliseconds) != WAIT_OBJECT_0) {
      std::printf("%s hangs\n", flow.name);
      TerminateProcess(process.hProcess, 1);
    } else {
      GetExitCodeProcess(process.hProcess, &code);
    }
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return code;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return std::printf("usage: start_flows FOLDER [FLOW ...]\n"), 2;
  const std::vector<std::string> wanted(arguments + 2, arguments + count);
  std::string library(MAX_PATH, '\0');
  library.resize(GetModuleFileNameA(nullptr, library.data(), MAX_PATH));
  library.resize(library.rfind('\\') + 1);
  library += "flows.dll";
  const HMODULE flows = LoadLibraryA(library.c_str());
  const auto flow_at = reinterpret_cast<const FlowEntry* (*)(unsigned)>(
      reinterpret_cast<void*>(GetProcAddress(flows, "FlowAt")));
  if (flow_at == nullptr) return std::printf("no flows in %s\n", library.c_str()), 2;

  int failed = 0, played = 0;
  for (unsigned i = 0; const FlowEntry* flow = flow_at(i); ++i) {
    // Some are no tests by themselves.
    const bool asked = std::find(wanted.begin(), wanted.end(), flow->name) != wanted.end();
    if (wanted.empty() ? std::string(flow->name).ends_with("OnRequest") : !asked) continue;
    ++played;
    std::fflush(stdout);
    const DWORD code = Run(*flow, arguments[1], library);
    if (code == 0) continue;
    ++failed;
    if (code != 1) std::printf("FAILED %s: exit code %lx\n", flow->name, code);
  }
  std::printf("%d of %d flows passed\n", played - failed, played);
  return played == 0 ? 2 : failed;
}
