// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/shortcut.h"

#include <utility>

#include "app/special_folder.h"
#include "text/ascii_case.h"
#include "text/trimmed.h"
#include "text/windows_path.h"

namespace vornalux {
namespace {

ShellResult Failure(ErrorCode error, const std::string& why) {
  return {.error = error, .description = why};
}

// A name with one of these would be a file elsewhere, or none.
bool IsFileName(const std::string& name) {
  if (name.empty() || name.find_first_of("\\/:*?\"<>|") != std::string::npos) return false;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < ' ') return false;
  }
  return true;
}

ShellResult ShortcutPath(const std::string& folder, const std::string& name, const char* extension,
                         std::string& path) {
  if (folder.empty()) return Failure(error::kPathNotFound, "The folder for it does not exist.");
  if (!IsFileName(name)) {
    return Failure(error::kInvalidName,
                   "A file's name cannot be empty or contain \\ / : * ? \" < > | .");
  }
  path = AddSlash(folder) + name + extension;
  return {};
}

}  // namespace

std::string ExpandEnvStrings(ShellObjects& objects, const std::string& text) {
  const std::string expanded = objects.ExpandEnvironment(text);
  return expanded.substr(0, expanded.find('\0'));
}

cShortcut::cShortcut(ShellObjects& objects)
    : objects_(objects), creation_(objects.CreateScriptShell(shell_)) {}

ShellResult cShortcut::Find(const std::string& folder_name, std::string& folder) {
  return shell_ ? GetSpecialFolder(*shell_, folder_name, folder) : creation_;
}

ShellResult cShortcut::CreateShortcut(const std::string& name, const ShortcutContent& content,
                                      const std::string& folder_name) {
  std::string folder;
  const ShellResult found = Find(folder_name, folder);
  return found.Failed() ? found : CreateShortcutAt(name, content, folder);
}

ShellResult cShortcut::CreateShortcutAt(const std::string& name, const ShortcutContent& content,
                                        const std::string& folder) {
  std::string path;
  ShellResult result = shell_ ? ShortcutPath(folder, name, ".lnk", path) : creation_;
  if (result.Failed()) return result;
  std::unique_ptr<ShellShortcut> shortcut;
  result = shell_->CreateShortcut(path, shortcut);
  if (result.Failed()) return result;

  const auto expanded = [this](const std::string& text) {
    return ExpandEnvStrings(objects_, text);
  };
  const std::pair<const char*, std::string> properties[] = {
      {"TargetPath", expanded(content.target)},
      {"Description", content.description},
      {"Arguments", expanded(content.arguments)},
      {"WorkingDirectory", expanded(content.working_directory)},
      {"IconLocation", expanded(content.icon_location)}};
  for (const auto& property : properties) {
    const bool first = &property == &properties[0];
    if (property.second.empty() && !first) continue;
    result = shortcut->Put(property.first, property.second);
    if (result.Failed()) return result;
  }
  result = shortcut->Put("WindowStyle", content.window_style);
  return result.Failed() ? result : shortcut->Save();
}

bool cShortcut::LinkExists(const std::string& name) {
  std::string folder;
  std::string path;
  return shell_ && !shell_->SpecialFolder("DeskTop", folder).Failed() &&
         !ShortcutPath(folder, name, ".lnk", path).Failed() && objects_.FileExists(path);
}

ShellResult cShortcut::CreateInternetShortcut(const std::string& name, const std::string& address,
                                              const std::string& kind) {
  std::string folder;
  const ShellResult found = Find("Desktop", folder);
  return found.Failed() ? found : CreateInternetShortcutAt(name, address, kind, folder);
}

ShellResult cShortcut::CreateInternetShortcutAt(const std::string& name, const std::string& address,
                                                const std::string& kind,
                                                const std::string& folder) {
  std::string path;
  const ShellResult named = ShortcutPath(folder, name, ".url", path);
  if (named.Failed()) return named;
  const std::string text = std::string("[InternetShortcut]\r\nURL=") +
                           (LowerCase(kind) == "file" ? "file://" : "http://") + Trimmed(address) +
                           "\r\n";
  return {.error = objects_.WriteTextFile(path, text)};
}

bool cShortcut::URLExists(const std::string& name) {
  std::string folder;
  std::string path;
  return !Find("Desktop", folder).Failed() && !ShortcutPath(folder, name, ".url", path).Failed() &&
         objects_.FileExists(path);
}

}  // namespace vornalux
