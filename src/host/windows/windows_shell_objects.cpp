// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_shell_objects.h"

#include <algorithm>
#include <optional>

#include "host/windows/automation.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr DWORD kLongestPath = 32768;  // characters, with the NUL

// This thread's use of the system's objects. Ends after the objects.
class Apartment {
 public:
  Apartment() : entered_(SUCCEEDED(CoInitialize(nullptr))) {}
  ~Apartment() {
    if (entered_) CoUninitialize();
  }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;

 private:
  bool entered_;
};

class AutomationShortcut final : public ShellShortcut {
 public:
  ShellResult Take(const AutomationValue& value) { return object_.Take(value); }

  ShellResult Put(const std::string& property, const std::string& value) override {
    AutomationValue text(value);
    return object_.Put(ToWide(property).c_str(), text);
  }
  ShellResult Put(const std::string& property, std::int32_t value) override {
    AutomationValue number(value);
    return object_.Put(ToWide(property).c_str(), number);
  }
  ShellResult Save() override {
    AutomationValue nothing;
    return object_.Call(L"Save", nullptr, nothing);
  }

 private:
  AutomationObject object_;
};

class AutomationShell final : public ScriptShell {
 public:
  ShellResult Create() {
    ShellResult result = shell_.Create(L"Wscript.Shell");
    if (result.Failed()) {
      result.description = "The Windows Script Host is not installed or has been switched off.";
    }
    return result;
  }

  ShellResult SpecialFolder(const std::string& name, std::string& folder) override {
    AutomationValue collection;
    ShellResult result = shell_.Get(L"SpecialFolders", nullptr, collection);
    if (result.Failed()) return result;
    AutomationObject folders;
    result = folders.Take(collection);
    if (result.Failed()) return result;
    AutomationValue wanted(name);
    AutomationValue path;
    result = folders.Get(L"Item", &wanted, path);
    if (!result.Failed()) folder = path.Text();
    return result;
  }

  ShellResult CreateShortcut(const std::string& path,
                             std::unique_ptr<ShellShortcut>& shortcut) override {
    AutomationValue file(path);
    AutomationValue made;
    ShellResult result = shell_.Call(L"CreateShortcut", &file, made);
    if (result.Failed()) return result;
    auto taken = std::make_unique<AutomationShortcut>();
    result = taken->Take(made);
    if (!result.Failed()) shortcut = std::move(taken);
    return result;
  }

 private:
  Apartment apartment_;
  AutomationObject shell_;
};

// In place of an existing file.
ErrorCode WriteBytes(const std::string& path, const std::string& content) {
  const std::optional<std::wstring> wide = ToWidePath(path);
  if (!wide) return error::kInvalidName;
  const HANDLE file = CreateFileW(wide->c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastError();
  DWORD written = 0;
  ErrorCode result = error::kSuccess;
  if (!WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr)) {
    result = LastError();
  } else if (written != content.size()) {
    result = error::kDiskFull;
  }
  CloseHandle(file);
  return result;
}

}  // namespace

ShellResult WindowsShellObjects::CreateScriptShell(std::unique_ptr<ScriptShell>& shell) {
  auto made = std::make_unique<AutomationShell>();
  ShellResult result = made->Create();
  if (!result.Failed()) shell = std::move(made);
  return result;
}

std::string WindowsShellObjects::ExpandEnvironment(const std::string& text) {
  const std::wstring wide = ToWide(text);
  std::wstring expanded(wide.size() + 1, L'\0');
  // The environment may change between two calls; this one does not wait for it for ever.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const DWORD needed = ExpandEnvironmentStringsW(wide.c_str(), expanded.data(),
                                                   static_cast<DWORD>(expanded.size()));
    if (needed == 0) break;
    if (needed <= expanded.size()) return FromWide(expanded.substr(0, needed - 1));
    expanded.resize(needed);
  }
  return text;
}

ProgramFile WindowsShellObjects::ProgramPlace() {
  std::wstring path(kLongestPath, L'\0');
  path.resize(std::min(GetModuleFileNameW(nullptr, path.data(), kLongestPath), kLongestPath - 1));
  const std::string file = FromWide(path);
  const std::size_t slash = file.rfind('\\');
  if (slash == std::string::npos) return {.folder = {}, .name = file};
  const std::string name = file.substr(slash + 1);
  return {.folder = file.substr(0, slash), .name = name.substr(0, name.rfind('.'))};
}

bool WindowsShellObjects::FileExists(const std::string& path) {
  const std::optional<std::wstring> wide = ToWidePath(path);
  if (!wide) return false;
  const DWORD attributes = GetFileAttributesW(wide->c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

ErrorCode WindowsShellObjects::WriteTextFile(const std::string& path, const std::string& text) {
  return WriteBytes(path, ToAnsi(text));
}

ErrorCode WindowsShellObjects::WriteUnicodeFile(const std::string& path, const std::string& text) {
  return WriteBytes(path, "\xEF\xBB\xBF" + text);
}

}  // namespace vornalux
