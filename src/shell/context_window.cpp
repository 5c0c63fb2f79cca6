// SPDX-License-Identifier: GPL-2.0-or-later
#include "shell/context_window.h"

namespace vornalux {

frmContext::frmContext(Platform& platform)
    : Form("Context menu items"),
      platform_(platform),
      registry_(platform.registry, platform.desktop) {
  cmdOK.click = [this] {
    Apply();
    Close();
  };
  cmdApply.click = [this] { Apply(); };
  cmdCancel.click = [this] { Close(); };
}

void frmContext::Open() {
  for (std::size_t i = 0; i < Check1.size(); ++i) {
    Check1[i].value = !registry_.ReadString(kClassesRoot, CommandKey(kContextVerbs[i]), {}).empty();
  }
  Show();
}

void frmContext::Apply() {
  const std::string folder = platform_.shell.ProgramPlace().folder;
  for (std::size_t i = 0; i < Check1.size(); ++i) {
    const ContextVerb& verb = kContextVerbs[i];
    if (!Check1[i].value) continue;
    registry_.WriteString(kClassesRoot, CommandKey(verb), {}, CommandOf(verb, folder));
  }
  for (std::size_t i = 0; i < Check1.size(); ++i) {
    if (!Check1[i].value) registry_.DeleteKeyTree(kClassesRoot, kContextVerbs[i].key);
  }
}

void frmContext::Close() {
  Hide();
  Raise(closed);
}

}  // namespace vornalux
