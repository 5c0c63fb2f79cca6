// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>

#include "forms/controls.h"
#include "platform/platform.h"
#include "shell/context_verbs.h"
#include "shell/registry_strings.h"

namespace vornalux {

// The window that puts verbs into the context menus of drives and folders, and takes them out.
class frmContext final : public Form {
 public:
  explicit frmContext(Platform& platform);

  Frame Frame1{"Choose items to display in Explorer context menus"};
  Label LblDrives{"Drives:"};
  Label LblFolders{"Folders:"};
  // One for each of kContextVerbs.
  std::array<CheckBox, 6> Check1{
      CheckBox{kContextVerbs[0].caption}, CheckBox{kContextVerbs[1].caption},
      CheckBox{kContextVerbs[2].caption}, CheckBox{kContextVerbs[3].caption},
      CheckBox{kContextVerbs[4].caption}, CheckBox{kContextVerbs[5].caption}};
  Button cmdOK{"OK"};
  Button cmdApply{"Apply"};
  Button cmdCancel{"Cancel"};

  // Checks the boxes of the verbs that there are, and shows the window.
  void Open();

  // The user has closed the window.
  Event closed;

 private:
  // Writes the checked ones, then deletes the others.
  void Apply();
  void Close();

  Platform& platform_;
  modReg registry_;
};

}  // namespace vornalux
