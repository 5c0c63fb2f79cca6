// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_check_library.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>

#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

using CheckCallback = BOOLEAN WINAPI(int command, DWORD modifier, void* argument);
using Chkdsk = void WINAPI(const wchar_t* root, const wchar_t* file_system, BOOLEAN correct_errors,
                           BOOLEAN verbose, BOOLEAN only_if_dirty, BOOLEAN scan_drive, void*, void*,
                           CheckCallback* callback);

constexpr int kProgress = 0;
constexpr int kDone = 11;
constexpr int kOutput = 14;

struct TextOutput {
  std::uint32_t lines;
  const char* text;
};
static_assert(sizeof(TextOutput) == 2 * sizeof(void*));
static_assert(offsetof(TextOutput, text) == sizeof(void*));

constexpr std::size_t kLongestText = 255;

// The check that is running. It has no other way of knowing whom to tell.
struct RunningCheck {
  const CheckLibrary::Callback& callback;
  std::exception_ptr thrown = nullptr;
};
RunningCheck* running = nullptr;

// What the library passes is read only where there is memory.
template <typename Value>
std::optional<Value> ValueAt(const void* argument) {
  if (argument == nullptr || IsBadReadPtr(argument, sizeof(Value))) return std::nullopt;
  Value value;
  std::memcpy(&value, argument, sizeof value);
  return value;
}

std::optional<std::string> LineAt(const void* argument) {
  const std::optional<TextOutput> output = ValueAt<TextOutput>(argument);
  if (!output || output->text == nullptr || IsBadStringPtrA(output->text, kLongestText)) {
    return std::nullopt;
  }
  const void* end = std::memchr(output->text, '\0', kLongestText);
  const std::size_t length =
      end == nullptr ? kLongestText
                     : static_cast<std::size_t>(static_cast<const char*>(end) - output->text);
  return FromOem({output->text, length});
}

CheckMessage MessageOf(int command, const void* argument) {
  CheckMessage message{.command = static_cast<std::uint32_t>(command), .number = 0, .line = {}};
  if (command == kProgress) message.number = ValueAt<std::int32_t>(argument).value_or(0);
  if (command == kDone) message.number = ValueAt<std::uint8_t>(argument).value_or(0);
  if (command == kOutput) message.line = LineAt(argument);
  return message;
}

BOOLEAN WINAPI OnMessage(int command, DWORD /*modifier*/, void* argument) {
  if (running == nullptr || running->thrown) return FALSE;
  try {
    return running->callback(MessageOf(command, argument)) ? TRUE : FALSE;
  } catch (...) {  // not through the frames of somebody else's library
    running->thrown = std::current_exception();
    return FALSE;
  }
}

// By its full path: with an administrator's rights nothing is run from the program's folder or the
// current one, which may be anybody's.
std::wstring SystemFile(const wchar_t* name) {
  wchar_t folder[MAX_PATH] = {};
  if (GetSystemDirectoryW(folder, MAX_PATH) >= MAX_PATH) folder[0] = L'\0';
  return std::wstring(folder) + L"\\" + name;
}

BOOLEAN ToByte(bool value) { return value ? TRUE : FALSE; }

}  // namespace

bool WindowsCheckLibrary::Load() {
  Free();
  const HMODULE library = LoadLibraryW(SystemFile(L"fmifs.dll").c_str());
  if (library == nullptr) return false;
  library_ = library;
  chkdsk_ = reinterpret_cast<void*>(Procedure<Chkdsk>(library, "Chkdsk"));
  if (chkdsk_ == nullptr) Free();
  return library_ != nullptr;
}

void WindowsCheckLibrary::Free() {
  if (library_ != nullptr) FreeLibrary(static_cast<HMODULE>(library_));
  library_ = nullptr;
  chkdsk_ = nullptr;
}

bool WindowsCheckLibrary::CanOpenForWriting(const std::string& device_path) {
  // Not shared at all: this fails as long as anybody else has it.
  const HANDLE volume = CreateFileA(ToAnsi(device_path).c_str(), GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
  if (volume == INVALID_HANDLE_VALUE) return false;
  CloseHandle(volume);
  return true;
}

void WindowsCheckLibrary::Check(const std::string& root, const std::string& file_system,
                                const DiskCheckOptions& options, const Callback& callback) {
  if (chkdsk_ == nullptr || running != nullptr) return;
  RunningCheck check{.callback = callback};
  running = &check;
  reinterpret_cast<Chkdsk*>(chkdsk_)(ToWide(root).c_str(), ToWide(file_system).c_str(),
                                     ToByte(options.correct_errors), ToByte(options.verbose),
                                     ToByte(options.only_if_dirty), ToByte(options.scan_drive),
                                     nullptr, nullptr, OnMessage);
  running = nullptr;
  if (check.thrown) std::rethrow_exception(check.thrown);
}

}  // namespace vornalux
