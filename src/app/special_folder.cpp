// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/special_folder.h"

#include <algorithm>
#include <iterator>

#include "text/ascii_case.h"

namespace vornalux {
namespace {

struct KnownFolder {
  const char* name;  // in lower case
  const char* asked_for;
  const char* otherwise = "";  // when that is empty
  const char* below = "";      // what follows it
};

constexpr KnownFolder kFolders[] = {
    {"allusersdesktop", "AllUsersDesktop", "Desktop"},
    {"allusersstartmenu", "AllUsersStartMenu", "StartMenu"},
    {"allusersprograms", "AllUsersPrograms", "Programs"},
    {"allusersstartup", "AllUsersStartup"},
    {"appdata", "AppData"},
    {"desktop", "Desktop"},
    {"favorites", "Favorites"},
    {"fonts", "Fonts"},
    {"mydocuments", "MyDocuments"},
    {"nethood", "NetHood"},
    {"printhood", "PrintHood"},
    {"programs", "Programs"},
    {"recent", "Recent"},
    {"sendto", "SendTo"},
    {"startmenu", "StartMenu"},
    {"startup", "Startup"},
    {"templates", "Templates"},
    {"quicklaunch", "AppData", "", "\\Microsoft\\Internet Explorer\\Quick Launch"},
};

}  // namespace

ShellResult GetSpecialFolder(ScriptShell& shell, const std::string& name, std::string& folder) {
  folder.clear();
  const std::string lower = LowerCase(name);
  const auto known =
      std::find_if(std::begin(kFolders), std::end(kFolders),
                   [&lower](const KnownFolder& candidate) { return candidate.name == lower; });
  if (known == std::end(kFolders)) return {};
  const std::string otherwise = known->otherwise;
  ShellResult result = shell.SpecialFolder(known->asked_for, folder);
  // Some shells fail where others have nothing to give.
  if (result.Failed()) folder.clear();
  if (folder.empty() && !otherwise.empty()) result = shell.SpecialFolder(otherwise, folder);
  if (!folder.empty()) folder += known->below;
  return result;
}

}  // namespace vornalux
