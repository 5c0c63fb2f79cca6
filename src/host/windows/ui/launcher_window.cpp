// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/launcher_window.h"

#include "host/windows/ui/resource.h"

namespace vornalux {

NativeLauncher::NativeLauncher(Introfrm& launcher, DefragWindow& main_window)
    : NativeForm(launcher, IDD_LAUNCHER), launcher_(launcher), main_window_(main_window) {
  RECT area;
  GetWindowRect(window(), &area);
  full_height_ = area.bottom - area.top;
  Bind(IDC_VOLUMES, launcher.ImageCombo1);
  Bind(IDC_SELECT, launcher.CmdGo);
  Bind(IDC_MORE, launcher.CmdJob);
  Bind(IDC_CANCEL_CHECK, launcher.CmdCancel);
  Bind(IDC_VSS_NOW, launcher.VSS_LIVE);
  Bind(IDC_EXCLUDE_LABEL, launcher.LblExclude);
  Bind(IDC_EXCLUDE, launcher.ExcludeTxt);
  Bind(IDC_VERSION, launcher.Lblversion);
  Bind(IDC_INFO, launcher.lblInfo);
  Bind(IDC_SUPPORT, launcher.LblSupport);
  BindJobOptions();
  launcher.FrmJob.changed = [this] { Fold(); };
  AtEnd([&launcher] { launcher.FrmJob.changed = nullptr; });
  Fold();
}

void NativeLauncher::BindJobOptions() {
  Bind(IDC_ACTION_FRAME, launcher_.Frame3);
  Bind(IDC_ACTION_DEFRAG, launcher_.Option1);
  Bind(IDC_ACTION_COMPACT, launcher_.Option2);
  Bind(IDC_ACTION_OPTIMIZE, launcher_.Option3);
  Bind(IDC_PRIORITY_LOW, launcher_.OptPrioLow);
  Bind(IDC_PRIORITY_NORMAL, launcher_.OptPrioMed);
  Bind(IDC_PRIORITY_HIGH, launcher_.OptPrioHi);
  Bind(IDC_WHEN_DONE, launcher_.Chk_ShutDown);
  Bind(IDC_AFTER_CLOSE, launcher_.OptClose);
  Bind(IDC_AFTER_SHUTDOWN, launcher_.OptShutDown);
  Bind(IDC_MINIMIZED, launcher_.Chk_Minmized);
  Bind(IDC_VSS_JOB, launcher_.VSS_Command);
  Bind(IDC_SHORTCUT_FRAME, launcher_.Frame1);
  Bind(IDC_SHORTCUT, launcher_.Command2);
  launcher_.FrmAfter.changed = [this] {
    for (const int id : {IDC_AFTER_CLOSE, IDC_AFTER_SHUTDOWN}) {
      EnableWindow(Item(id), launcher_.FrmAfter.enabled);
    }
  };
  launcher_.FrmAfter.changed();
  AtEnd([this] { launcher_.FrmAfter.changed = nullptr; });
}

void NativeLauncher::Fold() {
  const bool open = launcher_.FrmJob.visible;
  for (int id = IDC_JOB_FIRST; id <= IDC_JOB_LAST; ++id) {
    if (Item(id) != nullptr) ShowWindow(Item(id), open ? SW_SHOWNA : SW_HIDE);
  }
  RECT frame;
  GetWindowRect(window(), &frame);
  RECT first;
  GetWindowRect(Item(IDC_ACTION_FRAME), &first);
  const int folded = first.top - frame.top;
  SetWindowPos(window(), nullptr, 0, 0, frame.right - frame.left, open ? full_height_ : folded,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

// Without the launcher there is only the main window left, which takes everything along.
void NativeLauncher::OnCloseBox() { main_window_.QueryUnload(CloseReason::CloseBox); }

bool NativeLauncher::OnMessage(UINT message, WPARAM, LPARAM lparam, INT_PTR& result) {
  if (message != WM_MOUSEMOVE) return false;
  // The icon in the notification area reports to the hidden launcher in the guise of mouse moves.
  if (launcher_.visible) {
    launcher_.MouseMove();
  } else {
    launcher_.TrayMouse(static_cast<std::uint32_t>(lparam));
  }
  result = TRUE;
  return true;
}

}  // namespace vornalux
