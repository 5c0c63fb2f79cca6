// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/windows_desktop.h"

#include <shellapi.h>

#include <algorithm>
#include <array>

#include "host/windows/ui/input_box.h"
#include "host/windows/ui/native_form.h"
#include "host/windows/ui/resource.h"
#include "host/windows/ui/save_dialog.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

// The system waits for five seconds at an end of session or task.
constexpr UINT kBoxPatienceMilliseconds = 3000;
constexpr int kTrayAttempts = 3;
constexpr DWORD kTrayPauseMilliseconds = 200;
constexpr UINT kTrayIcon = 1;
constexpr std::array<UINT, 5> kIcons = {0, MB_ICONERROR, MB_ICONQUESTION, MB_ICONWARNING,
                                        MB_ICONINFORMATION};

// The record in its first form, which every version of the shell knows.
NOTIFYICONDATAA TrayRecord(HWND owner) {
  NOTIFYICONDATAA record = {};
  record.cbSize = NOTIFYICONDATAA_V1_SIZE;
  record.hWnd = owner;
  record.uID = kTrayIcon;
  return record;
}
static_assert(NOTIFYICONDATAA_V1_SIZE == (sizeof(void*) == 8 ? 104 : 88));
constexpr std::size_t kTipCharacters = 64;  // of that form

// As much of the text as there is room for, up to its first NUL.
template <std::size_t room>
void CopyText(const std::string& text, char (&out)[room], std::size_t characters = room) {
  const std::string ansi = ToAnsi(text);
  const std::size_t length = std::min({ansi.find('\0'), ansi.size(), characters - 1});
  std::copy_n(ansi.begin(), length, out);
  out[length] = '\0';
}

// A box or a question; forms stay.
BOOL CALLBACK CloseIfBox(HWND window, LPARAM) {
  constexpr ATOM kDialog = 0x8002;
  if (GetClassWord(window, GCW_ATOM) == kDialog && !NativeForm::Owns(window)) {
    PostMessageW(window, WM_CLOSE, 0, 0);
  }
  return TRUE;
}

void CALLBACK CloseBoxes(HWND, UINT, UINT_PTR, DWORD) {
  EnumThreadWindows(GetCurrentThreadId(), CloseIfBox, 0);
}

}  // namespace

void WindowsDesktop::Handle(MSG& message) {
  if (NativeForm::TakesMessage(message)) return;
  TranslateMessage(&message);
  DispatchMessageW(&message);
}

void WindowsDesktop::DoEvents() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) {
      ended_ = true;
      // For whoever waits further out.
      PostQuitMessage(static_cast<int>(message.wParam));
      return;
    }
    Handle(message);
  }
}

void WindowsDesktop::Run() {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) Handle(message);
  ended_ = true;
}

BoxAnswer WindowsDesktop::ShowBox(const std::string& text, const std::string& title,
                                  BoxButtons buttons, BoxIcon icon) {
  const UINT type =
      (buttons == BoxButtons::YesNo ? MB_YESNO : MB_OK) | kIcons[static_cast<std::size_t>(icon)];
  const UINT_PTR timer =
      hurry_ ? SetTimer(nullptr, 0, kBoxPatienceMilliseconds, CloseBoxes) : UINT_PTR{0};
  const NativeForm::Asking asking;
  const int answer = MessageBoxW(asking.owner(), ToWide(text).c_str(), ToWide(title).c_str(), type);
  if (timer != 0) KillTimer(nullptr, timer);
  if (buttons == BoxButtons::Ok) return BoxAnswer::Ok;
  return answer == IDYES ? BoxAnswer::Yes : BoxAnswer::No;
}

void WindowsDesktop::ShowModal(Form& form) {
  NativeForm* const native = NativeForm::Of(form);
  if (native == nullptr || native->window() == nullptr || ended_) return;
  native->BecomeModal();
  form.Show();
  MSG message = {};
  while (form.visible && !ended_) {
    if (GetMessageW(&message, nullptr, 0, 0) > 0) {
      Handle(message);
      continue;
    }
    ended_ = true;
    PostQuitMessage(static_cast<int>(message.wParam));  // for whoever waits further out
  }
  form.Hide();
}

std::optional<std::string> WindowsDesktop::InputBox(const std::string& prompt,
                                                    const std::string& title,
                                                    const std::string& initial) {
  const NativeForm::Asking asking;
  return AskForText(asking.owner(), prompt, title, initial);
}

std::optional<std::string> WindowsDesktop::SavePath(const std::string& title,
                                                    const std::string& initial) {
  const NativeForm::Asking asking;
  return AskForTextFile(asking.owner(), title, initial);
}

void WindowsDesktop::ShowTrayIcon(const std::string& tooltip) {
  tray_tip_ = tooltip;
  PutTrayIcon();
}

void WindowsDesktop::RestoreTrayIcon() {
  if (tray_tip_) PutTrayIcon();
}

void WindowsDesktop::PutTrayIcon() {
  NOTIFYICONDATAA record = TrayRecord(owner_);
  record.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
  record.uCallbackMessage = kTrayMessage;
  record.hIcon = LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM));
  CopyText(*tray_tip_, record.szTip, kTipCharacters);
  icon_shown_ = false;
  for (int attempt = 0; attempt < kTrayAttempts && !icon_shown_; ++attempt) {
    if (attempt > 0) Sleep(kTrayPauseMilliseconds);
    // An Explorer that was too busy to say so may have put it all the same.
    icon_shown_ = Shell_NotifyIconA(NIM_ADD, &record) || Shell_NotifyIconA(NIM_MODIFY, &record);
  }
  if (tray_icon_tried) tray_icon_tried(icon_shown_);
}

void WindowsDesktop::SetTrayTip(const std::string& tooltip) {
  if (!tray_tip_ || *tray_tip_ == tooltip) return;
  tray_tip_ = tooltip;
  if (!icon_shown_) return;
  NOTIFYICONDATAA record = TrayRecord(owner_);
  record.uFlags = NIF_TIP;
  CopyText(tooltip, record.szTip, kTipCharacters);
  Shell_NotifyIconA(NIM_MODIFY, &record);
}

void WindowsDesktop::TellAtTrayIcon(const std::string& title, const std::string& text) {
  if (!icon_shown_) return;
  NOTIFYICONDATAA record = TrayRecord(owner_);
  record.cbSize = NOTIFYICONDATAA_V2_SIZE;  // since XP has the first with room for it
  record.uFlags = NIF_INFO;
  record.dwInfoFlags = NIIF_INFO;
  CopyText(title, record.szInfoTitle);
  CopyText(text, record.szInfo);
  Shell_NotifyIconA(NIM_MODIFY, &record);
}

void WindowsDesktop::RemoveTrayIcon() {
  tray_tip_.reset();
  if (!icon_shown_) return;
  NOTIFYICONDATAA record = TrayRecord(owner_);
  Shell_NotifyIconA(NIM_DELETE, &record);
  icon_shown_ = false;
}

}  // namespace vornalux
