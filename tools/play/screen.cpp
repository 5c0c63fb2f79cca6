// SPDX-License-Identifier: GPL-2.0-or-later
#include "play/screen.h"

#include <commctrl.h>

#include <algorithm>
#include <stdexcept>

#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"

namespace vornalux::play {
namespace {

constexpr DWORD kPatienceMilliseconds = 300000;

HANDLE stirred_by_messages = nullptr;

// Our own questions are messages too, and no news.
LRESULT CALLBACK AfterSent(int code, WPARAM wparam, LPARAM lparam) {
  if (!InSendMessage()) SetEvent(stirred_by_messages);
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

LRESULT CALLBACK OnPosted(int code, WPARAM wparam, LPARAM lparam) {
  SetEvent(stirred_by_messages);
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

BOOL CALLBACK Collect(HWND window, LPARAM list) {
  reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
  return TRUE;
}

BOOL CALLBACK AppendText(HWND child, LPARAM out) {
  const std::string words = IsWindowVisible(child) ? Screen::Text(child) : std::string();
  if (!words.empty()) *reinterpret_cast<std::string*>(out) += "\n    " + words;
  return TRUE;
}

}  // namespace

Screen::Screen() : stirred_(CreateEventA(nullptr, FALSE, FALSE, nullptr)) {
  InitializeCriticalSection(&timers_lock_);
}

void Screen::WatchThisThread() {
  if (thread_ != 0) return;
  thread_ = GetCurrentThreadId();
  stirred_by_messages = stirred_;
  SetWindowsHookExA(WH_CALLWNDPROCRET, AfterSent, nullptr, thread_);
  SetWindowsHookExA(WH_GETMESSAGE, OnPosted, nullptr, thread_);
}

std::vector<HWND> Screen::TopWindows() const {
  std::vector<HWND> windows;
  if (thread_ == 0) return windows;
  EnumThreadWindows(thread_, Collect, reinterpret_cast<LPARAM>(&windows));
  return windows;
}

std::vector<HWND> Screen::Windows() const {
  std::vector<HWND> windows = TopWindows();
  std::erase_if(windows, [](HWND window) { return Kind(window) != L"#32770"; });
  return windows;
}

std::wstring Screen::Kind(HWND window) {
  wchar_t kind[64] = {};
  GetClassNameW(window, kind, 63);
  return kind;
}

std::vector<HWND> Screen::Children(HWND window) {
  std::vector<HWND> children;
  for (HWND child = GetWindow(window, GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT)) {
    children.push_back(child);
  }
  return children;
}

std::string Screen::Vetoes() const {
  std::string vetoes;
  for (const HWND window : TopWindows()) {
    if (SendMessageW(window, WM_QUERYENDSESSION, 0, 0) == FALSE) {
      vetoes += FromWide(Kind(window)) + " \"" + Text(window) + "\";";
    }
  }
  return vetoes;
}

HWND Screen::WindowWith(int control) const {
  for (const HWND window : Windows()) {
    if (GetDlgItem(window, control) != nullptr) return window;
  }
  return nullptr;
}

HWND Screen::Launcher() const { return WindowWith(IDC_VOLUMES); }
HWND Screen::Main() const { return WindowWith(IDC_MAP); }
HWND Screen::Details() const { return WindowWith(IDC_LIST); }
HWND Screen::Debug() const { return WindowWith(IDC_LOG); }
HWND Screen::Warning() const { return WindowWith(IDC_WARNING_TEMPERATURE); }
HWND Screen::Context() const { return WindowWith(IDC_CONTEXT_FRAME); }
HWND Screen::Input() const { return WindowWith(IDC_INPUT_TEXT); }
HWND Screen::Box() const {
  for (const HWND window : Windows()) {
    bool ours = false;  // a dialog of the program's own, whose controls have large numbers
    for (const HWND child : Children(window)) {
      const int id = GetDlgCtrlID(child);
      ours = ours || (id >= 100 && id < 1000);
    }
    if (!ours && Shown(window) && GetDlgItem(window, 0xFFFF) != nullptr) return window;
  }
  return nullptr;
}

void Screen::Until(const std::string& what, const std::function<bool()>& holds) const {
  const DWORD start = GetTickCount();
  while (!holds()) {
    const DWORD waited = GetTickCount() - start;
    if (waited >= kPatienceMilliseconds) {
      throw std::runtime_error("waited in vain for: " + what + "\n" + Describe());
    }
    WaitForSingleObject(stirred_, kPatienceMilliseconds - waited);
  }
}

void Screen::UntilShown(const std::string& what, HWND (Screen::*window)() const) const {
  Until(what + " is shown", [this, window] { return Shown((this->*window)()); });
}

void Screen::UntilIdle() const {
  Until("the main window is idle", [this] {
    return Main() && MenuEnabled(IDM_ANALYZE) && MenuEnabled(IDM_EXIT) && !MenuEnabled(IDM_STOP);
  });
}

void Screen::NoteMenu(int id, bool enabled) {
  if (id == IDM_STOP && enabled) runs_begun_ = runs_begun_ + 1;
}

void Screen::Run(int command) const {
  const int before = runs_begun_;
  Menu(command);
  Until("a run begins", [this, before] { return runs_begun_ != before; });
  UntilIdle();
}

std::string Screen::Text(HWND window) {
  std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
  text.resize(
      static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
  return FromWide(text);
}

std::string Screen::Panel(HWND dialog, int status_bar, int number) {
  wchar_t text[1024] = {};
  SendMessageW(GetDlgItem(dialog, status_bar), SB_GETTEXTW, static_cast<WPARAM>(number),
               reinterpret_cast<LPARAM>(text));
  return FromWide(text);
}

std::vector<std::string> Screen::Rows(HWND list) {
  std::vector<std::string> rows;
  for (int row = 0; row < ListView_GetItemCount(list); ++row) {
    wchar_t text[1024] = {};
    LVITEMW item = {};
    item.pszText = text;
    item.cchTextMax = 1024;
    SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    rows.push_back(FromWide(text));
  }
  return rows;
}

std::vector<std::string> Screen::Items(HWND combo) {
  std::vector<std::string> items;
  const auto count = static_cast<int>(SendMessageW(combo, CB_GETCOUNT, 0, 0));
  for (int i = 0; i < count; ++i) {
    wchar_t text[1024] = {};
    COMBOBOXEXITEMW item = {};
    item.mask = CBEIF_TEXT;
    item.iItem = i;
    item.pszText = text;
    item.cchTextMax = 1024;
    SendMessageW(combo, CBEM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
    items.push_back(FromWide(item.pszText));
  }
  return items;
}

void Screen::Press(HWND dialog, int id) const {
  const HWND control = GetDlgItem(dialog, id);
  if (!Shown(control) || !IsWindowEnabled(control) || !IsWindowEnabled(dialog)) {
    throw std::runtime_error("cannot press " + std::to_string(id) + "\n" + Describe());
  }
  PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), reinterpret_cast<LPARAM>(control));
}

void Screen::Choose(HWND dialog, int combo, int index) const {
  const HWND control = GetDlgItem(dialog, combo);
  SendMessageW(control, CB_SETCURSEL, static_cast<WPARAM>(index), 0);
  PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(combo, CBN_SELCHANGE),
               reinterpret_cast<LPARAM>(control));
}

bool Screen::MenuEnabled(int id) const {
  const UINT state = GetMenuState(GetMenu(Main()), static_cast<UINT>(id), MF_BYCOMMAND);
  return state != ~UINT{0} && (state & (MF_GRAYED | MF_DISABLED)) == 0;
}

bool Screen::MenuChecked(int id) const {
  return (GetMenuState(GetMenu(Main()), static_cast<UINT>(id), MF_BYCOMMAND) & MF_CHECKED) != 0;
}

void Screen::NoteTimer(HWND window, UINT_PTR id, UINT interval) {
  EnterCriticalSection(&timers_lock_);
  timers_[{window, id}] = interval;
  LeaveCriticalSection(&timers_lock_);
}

bool Screen::Tick(HWND window, UINT interval) const {
  bool running = false;
  EnterCriticalSection(&timers_lock_);
  for (const auto& [timer, set_to] : timers_) {
    if (timer.first != window || set_to != interval) continue;
    running = true;
    PostMessageW(window, WM_TIMER, timer.second, 0);
  }
  LeaveCriticalSection(&timers_lock_);
  return running;
}

void Screen::Menu(int id) const {
  if (!Shown(Main()) || !IsWindowEnabled(Main()) || !MenuEnabled(id)) {
    throw std::runtime_error("no menu command " + std::to_string(id) + "\n" + Describe());
  }
  PostMessageW(Main(), WM_COMMAND, static_cast<WPARAM>(id), 0);
}

void Screen::Answer(const std::string& text, int answer) const {
  Until("a box: " + text, [this, &text] {
    const HWND box = Box();
    return box != nullptr && BoxText(box) == text;
  });
  const HWND box = Box();
  PostMessageW(box, WM_COMMAND, MAKEWPARAM(answer, BN_CLICKED),
               reinterpret_cast<LPARAM>(GetDlgItem(box, answer)));
  Until("the box goes: " + text, [box] { return !IsWindow(box); });
}

std::vector<std::uint32_t> Screen::Picture(HWND dialog, int id, SIZE& size) {
  RECT area;
  GetClientRect(GetDlgItem(dialog, id), &area);
  size = {area.right, area.bottom};
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = size.cx;
  info.bmiHeader.biHeight = -size.cy;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  const HDC dc = CreateCompatibleDC(nullptr);
  void* bits = nullptr;
  const HBITMAP bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  const HGDIOBJ before = SelectObject(dc, bitmap);
  DRAWITEMSTRUCT item = {};
  item.CtlType = ODT_STATIC;
  item.CtlID = static_cast<UINT>(id);
  item.itemAction = ODA_DRAWENTIRE;
  item.hwndItem = GetDlgItem(dialog, id);
  item.hDC = dc;
  item.rcItem = area;
  SendMessageW(dialog, WM_DRAWITEM, static_cast<WPARAM>(id), reinterpret_cast<LPARAM>(&item));
  GdiFlush();
  const auto* pixels = static_cast<const std::uint32_t*>(bits);
  std::vector<std::uint32_t> picture(pixels, pixels + size.cx * size.cy);
  for (std::uint32_t& p : picture) p = (p & 0xFF) << 16 | (p & 0xFF00) | (p >> 16 & 0xFF);
  SelectObject(dc, before);
  DeleteObject(bitmap);
  DeleteDC(dc);
  return picture;
}

std::string Screen::Describe() const {
  std::string text = "on the screen:";
  for (const HWND window : Windows()) {
    if (!Shown(window)) continue;
    text += "\n  \"" + Text(window) + "\"";
    EnumChildWindows(window, AppendText, reinterpret_cast<LPARAM>(&text));
  }
  return text;
}

}  // namespace vornalux::play
