// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_registry.h"

#include <vector>

#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr std::size_t kLongestValueName = 32768;  // bytes, with the NUL
constexpr std::size_t kFirstValueSize = 1024;
constexpr std::size_t kLongestValue = std::size_t{1} << 20;
constexpr DWORD kKeyNameSize = 256;  // bytes, with the NUL

HKEY NativeKey(Handle key) { return reinterpret_cast<HKEY>(key); }

ErrorCode Code(LONG result) { return static_cast<ErrorCode>(result); }

}  // namespace

ErrorCode WindowsRegistry::CreateKey(Handle root, const std::string& path, std::uint32_t access,
                                     Handle& key) {
  HKEY made = nullptr;
  char no_class[] = "";
  const LONG result = RegCreateKeyExA(NativeKey(root), ToAnsi(path).c_str(), 0, no_class,
                                      REG_OPTION_NON_VOLATILE, access, nullptr, &made, nullptr);
  if (result == ERROR_SUCCESS) key = reinterpret_cast<Handle>(made);
  return Code(result);
}

ErrorCode WindowsRegistry::OpenKey(Handle root, const std::string& path, std::uint32_t access,
                                   Handle& key) {
  HKEY opened = nullptr;
  const LONG result = RegOpenKeyExA(NativeKey(root), ToAnsi(path).c_str(), 0, access, &opened);
  if (result == ERROR_SUCCESS) key = reinterpret_cast<Handle>(opened);
  return Code(result);
}

void WindowsRegistry::CloseKey(Handle key) { RegCloseKey(NativeKey(key)); }

ErrorCode WindowsRegistry::SetValue(Handle key, const std::string& name, const std::string& text) {
  const std::string data = ToAnsi(text);
  return Code(RegSetValueExA(NativeKey(key), ToAnsi(name).c_str(), 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(data.c_str()),
                             static_cast<DWORD>(data.size() + 1)));
}

ErrorCode WindowsRegistry::EnumValue(Handle key, std::uint32_t index, std::string& name,
                                     std::string& text) {
  std::vector<char> found(kLongestValueName);
  std::vector<char> data(kFirstValueSize);
  for (;;) {
    DWORD name_size = static_cast<DWORD>(found.size());
    DWORD data_size = static_cast<DWORD>(data.size());
    const LONG result = RegEnumValueA(NativeKey(key), index, found.data(), &name_size, nullptr,
                                      nullptr, reinterpret_cast<BYTE*>(data.data()), &data_size);
    if (result == ERROR_SUCCESS) {
      name = FromAnsi({found.data(), name_size});
      text = FromAnsi({data.data(), data_size});
      return error::kSuccess;
    }
    // It may have grown since it was asked for.
    if (result != ERROR_MORE_DATA || data.size() >= kLongestValue) return Code(result);
    data.resize(data.size() * 4);
  }
}

ErrorCode WindowsRegistry::EnumKey(Handle key, std::uint32_t index, std::string& name) {
  char found[kKeyNameSize] = {};
  const LONG result = RegEnumKeyA(NativeKey(key), index, found, kKeyNameSize);
  if (result == ERROR_SUCCESS) name = FromAnsi(found);
  return Code(result);
}

ErrorCode WindowsRegistry::DeleteKey(Handle key, const std::string& name) {
  return Code(RegDeleteKeyA(NativeKey(key), ToAnsi(name).c_str()));
}

}  // namespace vornalux
