// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_machine.h"

#include <cstddef>
#include <cwctype>

#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr DWORD kMessageSize = 160;

// Different at each start; nothing secret hangs on it.
std::uint64_t Seed() {
  LARGE_INTEGER count{};
  QueryPerformanceCounter(&count);
  return static_cast<std::uint64_t>(count.QuadPart) ^ std::uint64_t{GetCurrentProcessId()} << 32 ^
         GetTickCount();
}

// Sets the class where that is allowed and says which one is in force.
std::uint32_t SetProcessPriority(std::uint32_t priority_class) {
  const DWORD id = GetCurrentProcessId();
  HANDLE process = OpenProcess(PROCESS_SET_INFORMATION | PROCESS_QUERY_INFORMATION, FALSE, id);
  if (process != nullptr) {
    ::SetPriorityClass(process, priority_class);
  } else {
    process = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id);
  }
  if (process == nullptr) return 0;
  const std::uint32_t in_force = GetPriorityClass(process);
  CloseHandle(process);
  return in_force;
}

// What stands for the volume in all sessions of the machine. Without an identity of its own, as
// that of a substituted drive, it is known by its letter.
std::wstring MarkOf(const std::string& root) {
  constexpr DWORD kIdentityRoom = 50;
  const std::wstring place = ToWide(root);
  wchar_t identity[kIdentityRoom] = {};
  const bool known =
      GetVolumeNameForVolumeMountPointW(place.c_str(), identity, kIdentityRoom) != FALSE;
  std::wstring name = L"Global\\Vornalux works on ";
  for (const wchar_t c : known ? std::wstring(identity) : place) {
    if (c != L'\\') name += known ? c : static_cast<wchar_t>(towupper(c));
  }
  return name;
}

}  // namespace

WindowsMachine::WindowsMachine() : random_(Seed()) {}

std::string WindowsMachine::WindowsFolder() {
  char folder[MAX_PATH] = {};
  const UINT length = GetWindowsDirectoryA(folder, MAX_PATH);
  if (length >= MAX_PATH) return {};
  std::string text = FromAnsi({folder, length});
  if (text.ends_with('\\')) text.pop_back();  // Windows in a drive's root
  return text;
}

std::string WindowsMachine::ErrorText(ErrorCode code) {
  char text[kMessageSize] = {};
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, code, 0, text, kMessageSize, nullptr);
  return FromAnsi({text, length});
}

std::uint32_t WindowsMachine::SetPriorityClass(std::uint32_t priority_class) {
  return SetProcessPriority(priority_class);
}

std::uint32_t WindowsMachine::PriorityClass() { return GetPriorityClass(GetCurrentProcess()); }

bool WindowsMachine::TakeVolume(const std::string& root) {
  const std::wstring name = root.empty() ? std::wstring() : MarkOf(root);
  if (name == taken_name_) return true;
  HANDLE mark = nullptr;
  if (!name.empty()) {
    // It lasts for as long as somebody has it open, however its owner ends. Another user's may be
    // seen but not opened.
    SetLastError(ERROR_SUCCESS);
    mark = CreateMutexW(nullptr, FALSE, name.c_str());
    const DWORD error = GetLastError();
    if (mark != nullptr && error == ERROR_ALREADY_EXISTS) CloseHandle(mark);
    if (error == (mark != nullptr ? ERROR_ALREADY_EXISTS : ERROR_ACCESS_DENIED)) return false;
  }
  if (taken_ != nullptr) CloseHandle(taken_);
  taken_ = mark;
  taken_name_ = name;
  return true;
}

void WindowsMachine::KeepAwake(bool awake) {
  SetThreadExecutionState(awake ? ES_CONTINUOUS | ES_SYSTEM_REQUIRED : ES_CONTINUOUS);
}

// Windows has an answer since version 7; older ones refuse the question.
bool WindowsMachine::IsSolidState(const std::string& root) {
  constexpr DWORD kSeekPenalty = 7;
  struct SeekPenalty {
    DWORD version;
    DWORD size;
    BOOLEAN incurs;
  };
  STORAGE_PROPERTY_QUERY query = {};
  query.PropertyId = static_cast<STORAGE_PROPERTY_ID>(kSeekPenalty);
  query.QueryType = PropertyStandardQuery;
  const std::string path = "\\\\.\\" + root.substr(0, 2);
  const HANDLE device = CreateFileA(ToAnsi(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  if (device == INVALID_HANDLE_VALUE) return false;
  SeekPenalty answer = {};
  DWORD done = 0;
  const bool answered = DeviceIoControl(device, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query,
                                        &answer, sizeof answer, &done, nullptr) != FALSE;
  CloseHandle(device);
  return answered && done > offsetof(SeekPenalty, incurs) && answer.size >= sizeof answer &&
         answer.incurs == FALSE;
}

double WindowsMachine::Random() {
  constexpr double kTwoToMinus53 = 1.0 / 9007199254740992.0;
  return static_cast<double>(random_() >> 11) * kTwoToMinus53;
}

}  // namespace vornalux
