// SPDX-License-Identifier: GPL-2.0-or-later
// The launcher's job as a shortcut on the desktop.
#include "app/launcher.h"
#include "app/shortcut.h"
#include "text/trimmed.h"
#include "text/windows_path.h"

namespace vornalux {

void Introfrm::Command2_Click() {
  const std::optional<std::string> answer = platform_.desktop.InputBox(
      "Enter Title for This Desktop Shortcut:", "Enter Shortcut Title", kProgramTitle);
  const std::string name = Trimmed(answer.value_or(""));
  if (name.empty()) return;

  const ProgramFile program = platform_.shell.ProgramPlace();
  const std::string target = program.folder + "\\" + program.name + ".exe";
  const ShellResult result = cShortcut(platform_.shell)
                                 .CreateShortcut(name,
                                                 {.target = target,
                                                  .arguments = JobLine(),
                                                  .working_directory = AddSlash(program.folder),
                                                  .icon_location = target + ",0"},
                                                 "AllUsersDeskTop");
  if (result.Failed()) {
    ExplainShortcut(name, result);
    return;
  }
  platform_.desktop.ShowBox("Desktop shortcut '" + name + "' created.", "Shortcut Created",
                            BoxButtons::Ok, BoxIcon::Information);
}

void Introfrm::ExplainShortcut(const std::string& name, const ShellResult& result) {
  std::string why = result.description;
  if (why.empty()) why = platform_.machine.ErrorText(result.error);
  if (why.empty()) why = "Error " + std::to_string(result.error) + ".";
  platform_.desktop.ShowBox("Desktop shortcut '" + name + "' could not be created.\r\n" + why,
                            kProgramTitle, BoxButtons::Ok, BoxIcon::Critical);
}

}  // namespace vornalux
