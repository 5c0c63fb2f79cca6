// SPDX-License-Identifier: GPL-2.0-or-later
#include "text/windows_path.h"

#include <algorithm>
#include <cstddef>

#include "text/ascii_case.h"

namespace vornalux {

namespace {

constexpr std::string_view kLongPrefix = R"(\\?\)";
constexpr std::string_view kDevicePrefix = R"(\\.\)";
// UTF-16 units that a path may have under "\\?\". Keeps walks of damaged, cyclic trees finite.
constexpr std::size_t kLongestPath = 32767;

std::size_t Utf16Units(std::string_view utf8) {
  std::size_t units = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0xF0) {
      units += 2;
    } else if (byte < 0x80 || byte >= 0xC0) {
      ++units;
    }
  }
  return units;
}

}  // namespace

char DriveLetter(char letter) {
  const char upper = UpperCase(letter);
  return upper >= 'A' && upper <= 'Z' ? upper : '\0';
}

std::optional<WindowsPath> SplitPath(std::string_view path) {
  if (path.starts_with(kLongPrefix)) path.remove_prefix(kLongPrefix.size());
  if (path.size() < 3 || DriveLetter(path[0]) == 0 || path[1] != ':' || path[2] != '\\') {
    return std::nullopt;
  }
  if (path.size() > kLongestPath && Utf16Units(path) > kLongestPath) return std::nullopt;

  std::string_view rest = path.substr(3);
  if (rest.find('\0') != std::string_view::npos) return std::nullopt;
  if (rest.starts_with('\\')) return std::nullopt;
  WindowsPath out;
  out.of_folder = rest.ends_with('\\');
  if (out.of_folder) rest.remove_suffix(1);
  if (rest.ends_with('\\')) return std::nullopt;
  out.drive = DriveLetter(path[0]);
  const std::size_t last = rest.rfind('\\');
  out.folder = last == std::string_view::npos ? std::string_view() : rest.substr(0, last);
  out.name = last == std::string_view::npos ? rest : rest.substr(last + 1);
  // Looking for empty names further up in every path would cost more than all the rest in deep
  // trees; who goes there meets them.
  if (out.folder.ends_with('\\')) return std::nullopt;
  return out;
}

std::string AddSlash(std::string path) {
  if (!path.ends_with('\\')) path += '\\';
  return path;
}

char DriveOfDevice(std::string_view device_path) {
  if (!device_path.starts_with(kDevicePrefix)) return 0;
  device_path.remove_prefix(kDevicePrefix.size());
  return device_path.size() == 2 && device_path[1] == ':' ? DriveLetter(device_path[0]) : '\0';
}

char DriveOfRoot(std::string_view root) {
  return root.size() == 3 && root.substr(1) == R"(:\)" ? DriveLetter(root[0]) : '\0';
}

bool IsPlainName(std::string_view name) {
  constexpr std::string_view kReserved = R"(/\:*?"<>|)";
  return !name.empty() && std::none_of(name.begin(), name.end(), [&](char c) {
    return static_cast<unsigned char>(c) < 0x20 || kReserved.find(c) != std::string_view::npos;
  });
}

bool IsStreamSuffix(std::string_view text) {
  if (text.size() < 2 || text[0] != ':') return false;
  const std::size_t colon = text.find(':', 1);
  if (colon == std::string_view::npos) return true;
  return colon + 1 < text.size() && text.find(':', colon + 1) == std::string_view::npos;
}

}  // namespace vornalux
