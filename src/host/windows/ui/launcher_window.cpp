// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/launcher_window.h"

#include <shellapi.h>

#include <algorithm>
#include <array>

#include "host/windows/ui/resource.h"
#include "host/windows/ui/windows_desktop.h"

namespace vornalux {
namespace {

int IdOf(Pass pass) {
  switch (pass) {
    case Pass::Defrag:
      break;
    case Pass::Optimize:
      return IDC_ACTION_OPTIMIZE;
    case Pass::Compact:
      return IDC_ACTION_COMPACT;
  }
  return IDC_ACTION_DEFRAG;
}

// A program with an administrator's rights hears nothing of Explorer, which has less, unless it
// says that it will. Systems without the question let everything through.
void LetThrough(UINT message) {
  constexpr DWORD kAdd = 1;
  const auto filter = Procedure<BOOL WINAPI(UINT, DWORD)>(GetModuleHandleW(L"user32.dll"),
                                                          "ChangeWindowMessageFilter");
  if (filter != nullptr) filter(message, kAdd);
}

bool IsJobOption(int id) { return id >= IDC_JOB_FIRST && id <= IDC_JOB_LAST; }

}  // namespace

NativeLauncher::NativeLauncher(Introfrm& launcher, DefragWindow& main_window)
    : NativeForm(launcher, IDD_LAUNCHER),
      launcher_(launcher),
      main_window_(main_window),
      anchors_(window()),
      taskbar_created_(RegisterWindowMessageW(L"TaskbarCreated")) {
  LetThrough(taskbar_created_);
  LetThrough(kTrayMessage);
  RECT area;
  GetWindowRect(window(), &area);
  full_height_ = area.bottom - area.top;
  LoadDrivePictures();
  Bind(IDC_VOLUMES, launcher.ImageCombo1);
  Bind(IDC_SELECT, launcher.CmdGo);
  Bind(IDC_MORE, launcher.CmdJob);
  Bind(IDC_CANCEL_CHECK, launcher.CmdCancel);
  Bind(IDC_VSS_NOW, launcher.VSS_LIVE);
  Bind(IDC_EXCLUDE_LABEL, launcher.LblExclude);
  Bind(IDC_EXCLUDE, launcher.ExcludeTxt);
  Bind(IDC_CHECKING, launcher.LblChecking);
  ShowAtOnce(launcher.LblChecking);
  Bind(IDC_VERSION, launcher.Lblversion);
  Bind(IDC_INFO, launcher.lblInfo);
  Bind(IDC_SUPPORT, launcher.LblSupport);
  BindJobOptions();
  AnchorControls();
  launcher.FrmJob.changed = [this] { Fold(); };
  AtEnd([&launcher] { launcher.FrmJob.changed = nullptr; });
  Fold();
}

NativeLauncher::~NativeLauncher() { ImageList_Destroy(pictures_); }

// The shell's own pictures of the kinds of drives, each in the place of its kind.
void NativeLauncher::LoadDrivePictures() {
  constexpr std::uint32_t kKinds = drive_type::kRamDisk + 1;
  constexpr int kOther = 8;
  std::array<int, kKinds> pictures;  // their numbers in the shell's library
  pictures.fill(kOther);
  pictures[drive_type::kRemovable] = 7;
  pictures[drive_type::kFixed] = 8;
  pictures[drive_type::kCdRom] = 11;
  pictures_ = ImageList_Create(GetSystemMetrics(SM_CXSMICON), GetSystemMetrics(SM_CYSMICON),
                               ILC_COLOR32 | ILC_MASK, kKinds, 0);
  wchar_t shell[MAX_PATH] = {};  // with its folder: no other library of the name will do
  GetModuleFileNameW(GetModuleHandleW(L"shell32.dll"), shell, MAX_PATH);
  for (const int picture : pictures) {
    HICON icon = nullptr;
    ExtractIconExW(shell, picture, nullptr, &icon, 1);
    // A place without a picture would move those behind it.
    if (icon == nullptr) icon = CopyIcon(LoadIconA(nullptr, IDI_APPLICATION));
    ImageList_AddIcon(pictures_, icon);
    DestroyIcon(icon);
  }
  SendMessageW(Item(IDC_VOLUMES), CBEM_SETIMAGELIST, 0, reinterpret_cast<LPARAM>(pictures_));
}

void NativeLauncher::BindJobOptions() {
  Bind(IDC_ACTION_FRAME, launcher_.Frame3);
  for (const PassRow& row : kPasses) Bind(IdOf(row.pass), launcher_.PassOption(row.pass));
  Bind(IDC_THOROUGH, launcher_.Chk_Thorough);
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
      EnableWindow(Item(id), launcher_.FrmAfter.enabled && launcher_.FrmJob.visible);
    }
  };
  launcher_.FrmAfter.changed();
  AtEnd([this] { launcher_.FrmAfter.changed = nullptr; });
}

void NativeLauncher::ShowState(int id, const Control& control) const {
  const bool folded = IsJobOption(id) && !launcher_.FrmJob.visible;
  const bool held =
      (id == IDC_AFTER_CLOSE || id == IDC_AFTER_SHUTDOWN) && !launcher_.FrmAfter.enabled;
  SetState(id, control.visible && !folded, control.enabled && !held);
}

void NativeLauncher::Fold() {
  const bool open = launcher_.FrmJob.visible;
  for (int id = IDC_JOB_FIRST; id <= IDC_JOB_LAST; ++id) {
    if (Item(id) != nullptr) SetState(id, open, true);
  }
  Raise(launcher_.FrmAfter.changed);
  Raise(launcher_.Chk_Thorough.changed);
  RECT frame;
  GetWindowRect(window(), &frame);
  SetWindowPos(window(), nullptr, 0, 0, frame.right - frame.left,
               std::max(LeastSize().cy, taken_height_), SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  if (!open) return;
  GetWindowRect(window(), &frame);
  NativeForm::TakePlace(frame);  // where all of it can be seen
}

SIZE NativeLauncher::LeastSize() const {
  RECT frame, first;
  GetWindowRect(window(), &frame);
  GetWindowRect(Item(IDC_ACTION_FRAME), &first);
  return {anchors_.LeastSize().cx, launcher_.FrmJob.visible ? full_height_ : first.top - frame.top};
}

void NativeLauncher::TakePlace(const RECT& place) {
  NativeForm::TakePlace(place);
  RECT now;  // no higher than the screen
  GetWindowRect(window(), &now);
  taken_height_ = std::min(place.bottom - place.top, now.bottom - now.top);
}

// Room that another window's place leaves goes to what is written.
void NativeLauncher::AnchorControls() {
  using enum Anchors::Way;
  RECT list;
  SendMessageW(Item(IDC_VOLUMES), CB_GETDROPPEDCONTROLRECT, 0, reinterpret_cast<LPARAM>(&list));
  anchors_.Add(IDC_VOLUMES, kGrowsRight, list.bottom - list.top);
  for (const int id : {IDC_EXCLUDE, IDC_SHORTCUT_FRAME, IDC_SHORTCUT}) {
    anchors_.Add(id, kGrowsRight);
  }
  anchors_.Add(IDC_VERSION, kMovesRight);
}

// Without the launcher there is only the main window left, which takes everything along.
void NativeLauncher::OnCloseBox() { main_window_.QueryUnload(CloseReason::CloseBox); }

bool NativeLauncher::OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) {
  if (message == taskbar_created_) Raise(taskbar_created);
  if (message == WM_SIZE && wparam != SIZE_MINIMIZED) anchors_.Arrange();
  if (message != kTrayMessage) return false;
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
