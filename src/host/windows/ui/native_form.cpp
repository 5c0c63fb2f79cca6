// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/native_form.h"

#include <algorithm>
#include <utility>

#include "host/windows/ui/resource.h"
#include "host/windows/ui/window_text.h"

namespace vornalux {
namespace {

constexpr WPARAM kCommandBits = 0xFFF0;  // of a system command

std::vector<NativeForm*>& Forms() {
  static std::vector<NativeForm*> forms;
  return forms;
}

SIZE SizeOf(const RECT& area) { return {area.right - area.left, area.bottom - area.top}; }

MONITORINFO MonitorOf(const RECT& place) {
  MONITORINFO info = {};
  info.cbSize = sizeof info;
  GetMonitorInfoW(MonitorFromRect(&place, MONITOR_DEFAULTTONEAREST), &info);
  return info;
}

// Where the window is, or would be if it were not as large as the screen.
RECT PlaceOf(HWND window) {
  RECT place;
  GetWindowRect(window, &place);
  if (!IsZoomed(window)) return place;
  const MONITORINFO monitor = MonitorOf(place);
  WINDOWPLACEMENT normal = {};
  normal.length = sizeof normal;
  GetWindowPlacement(window, &normal);
  place = normal.rcNormalPosition;  // counts from where the taskbar leaves room
  OffsetRect(&place, monitor.rcWork.left - monitor.rcMonitor.left,
             monitor.rcWork.top - monitor.rcMonitor.top);
  return place;
}

}  // namespace

std::function<void(CloseReason)> NativeForm::close_program;
std::function<void()> NativeForm::open_help;
NativeForm* NativeForm::modal_ = nullptr;

NativeForm::NativeForm(Form& form, int dialog_id) : form_(form) {
  Forms().push_back(this);
  CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(dialog_id), nullptr, Procedure,
                     reinterpret_cast<LPARAM>(this));
  for (const auto& [kind, metric] : {std::pair{ICON_SMALL, SM_CXSMICON}, {ICON_BIG, SM_CXICON}}) {
    const int size = GetSystemMetrics(metric);
    const HANDLE icon = LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_PROGRAM),
                                   IMAGE_ICON, size, size, LR_SHARED);
    SendMessageW(window_, WM_SETICON, static_cast<WPARAM>(kind), reinterpret_cast<LPARAM>(icon));
  }
  form_.changed = [this] { ShowForm(); };
  form_.unloaded = [this] { OnUnload(); };
  form_.to_front = [this] { ComeToFront(); };
  ShowForm();
}

NativeForm::~NativeForm() {
  EndModal();
  std::erase(Forms(), this);
  if (shares_place_ != nullptr) shares_place_->shares_place_ = nullptr;
  form_.changed = nullptr;
  form_.unloaded = nullptr;
  form_.to_front = nullptr;
  for (const auto& unbind : unbind_) unbind();
  if (window_ != nullptr) DestroyWindow(window_);
}

NativeForm* NativeForm::Of(const Form& form) {
  const auto found = std::find_if(Forms().begin(), Forms().end(), [&form](const NativeForm* known) {
    return &known->form_ == &form;
  });
  return found != Forms().end() ? *found : nullptr;
}

bool NativeForm::Owns(HWND window) {
  return std::any_of(Forms().begin(), Forms().end(),
                     [window](const NativeForm* form) { return form->window_ == window; });
}

void NativeForm::BecomeModal() {
  modal_ = this;
  const HWND active = GetActiveWindow();
  HWND owner = nullptr;
  for (const NativeForm* other : Forms()) {
    if (other == this || other->window_ == nullptr || !IsWindowEnabled(other->window_)) continue;
    // It stays in front of the window at work, unless that one would take it along out of sight.
    if (other->window_ == active && !IsIconic(other->window_)) owner = other->window_;
    Hold(other->window_);
  }
  SetWindowLongPtrW(window_, GWLP_HWNDPARENT, reinterpret_cast<LONG_PTR>(owner));
}

void NativeForm::Hold(HWND window) {
  EnableWindow(window, FALSE);
  held_.push_back(window);
}

void NativeForm::EndModal() {
  if (modal_ == this) modal_ = nullptr;
  for (const HWND window : std::exchange(held_, {})) EnableWindow(window, TRUE);
}

NativeForm::Asking::Asking() {
  for (const NativeForm* form : Forms()) {
    if (form->window_ == nullptr || !form->OnScreen() || !form->TakesCommands()) continue;
    if (owner_ == nullptr || form->window_ == GetActiveWindow()) owner_ = form->window_;
  }
  if (modal_ != nullptr && modal_->window_ != nullptr && modal_->OnScreen())
    owner_ = modal_->window_;
  for (const NativeForm* form : Forms()) {
    const HWND window = form->window_;
    if (window == nullptr || window == owner_ || !form->TakesCommands()) continue;
    if (!EnableWindow(window, FALSE)) held_.push_back(window);
  }
}

NativeForm::Asking::~Asking() {
  for (const HWND window : held_) {
    if (IsWindow(window)) EnableWindow(window, TRUE);
  }
}

void NativeForm::OnUnload() {
  if (window_ != nullptr) DestroyWindow(window_);
}

bool NativeForm::TakesMessage(MSG& message) {
  return std::any_of(Forms().begin(), Forms().end(), [&message](NativeForm* form) {
    return form->window_ != nullptr &&
           (form->TakesKey(message) || IsDialogMessageW(form->window_, &message));
  });
}

bool NativeForm::TakesKey(const MSG& message) {
  constexpr LPARAM kHeldBefore = LPARAM{1} << 30;
  const bool alt = message.message == WM_SYSKEYDOWN;
  if ((!alt && message.message != WM_KEYDOWN) || (message.lParam & kHeldBefore) != 0) return false;
  if (message.hwnd != window_ && !IsChild(window_, message.hwnd)) return false;
  if (!IsWindowEnabled(window_)) return false;
  if (message.wParam != VK_F1 || alt) return OnKey(message.wParam, alt);
  Raise(open_help);
  return true;
}

void NativeForm::ShowForm() {
  if (window_ == nullptr) return;
  SetText(window_, form_.caption);
  const bool shown = IsWindowVisible(window_) != FALSE;
  const bool minimized = IsIconic(window_) != FALSE;
  // Before it goes: a window that takes no input would not come to the front in its stead.
  if (!form_.visible) EndModal();
  if (shown != form_.visible) {
    if (shares_place_ != nullptr && shares_place_->OnScreen()) {
      if (form_.visible) TakePlace(PlaceOf(shares_place_->window_));
      if (OnScreen()) shares_place_->TakePlace(PlaceOf(window_));
    }
    const bool aside = form_.window_state == WindowState::Minimized;
    ShowWindow(window_, !form_.visible ? SW_HIDE : aside ? SW_SHOWMINNOACTIVE : SW_SHOW);
  }
  if (form_.visible && minimized && form_.window_state == WindowState::Normal) {
    ShowWindow(window_, SW_RESTORE);
  }
}

void NativeForm::ComeToFront() {
  if (window_ == nullptr) return;
  if (IsIconic(window_)) ShowWindow(window_, SW_RESTORE);
  if (shares_place_ != nullptr && shares_place_->OnScreen()) {
    TakePlace(PlaceOf(shares_place_->window_));
  }
  SetForegroundWindow(window_);
}

void NativeForm::SharePlaceWith(NativeForm& other) {
  shares_place_ = &other;
  other.shares_place_ = this;
}

SIZE NativeForm::LeastSize() const {
  RECT area;
  GetWindowRect(window_, &area);
  return SizeOf(area);
}

void NativeForm::TakePlace(const RECT& place) {
  const bool zoomed = IsZoomed(window_) != FALSE;
  if (zoomed) {
    if (MonitorFromWindow(window_, MONITOR_DEFAULTTONEAREST) ==
        MonitorFromRect(&place, MONITOR_DEFAULTTONEAREST)) {
      return;
    }
    ShowWindow(window_, SW_RESTORE);
  }
  const RECT work = MonitorOf(place).rcWork;
  const SIZE room = SizeOf(work), wanted = SizeOf(place), least = LeastSize();
  const LONG width = std::max(std::min(wanted.cx, room.cx), least.cx);
  const LONG height = std::max(std::min(wanted.cy, room.cy), least.cy);
  const LONG left = std::max(std::min(place.left, work.right - width), work.left);
  const LONG top = std::max(std::min(place.top, work.bottom - height), work.top);
  SetWindowPos(window_, nullptr, left, top, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
  if (zoomed) ShowWindow(window_, SW_MAXIMIZE);
}

INT_PTR CALLBACK NativeForm::Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_INITDIALOG) {
    SetWindowLongPtrW(window, DWLP_USER, lparam);
    reinterpret_cast<NativeForm*>(lparam)->window_ = window;
    return TRUE;
  }
  auto* form = reinterpret_cast<NativeForm*>(GetWindowLongPtrW(window, DWLP_USER));
  return form != nullptr ? form->Handle(message, wparam, lparam) : FALSE;
}

INT_PTR NativeForm::Handle(UINT message, WPARAM wparam, LPARAM lparam) {
  INT_PTR result = FALSE;
  if (OnMessage(message, wparam, lparam, result)) return result;
  switch (message) {
    case WM_COMMAND:
      OnCommand(LOWORD(wparam), HIWORD(wparam));
      return TRUE;
    case WM_CTLCOLORSTATIC:
      return ColourText(reinterpret_cast<HDC>(wparam),
                        GetDlgCtrlID(reinterpret_cast<HWND>(lparam)));
    case WM_DRAWITEM:
      Paint(*reinterpret_cast<const DRAWITEMSTRUCT*>(lparam));
      return TRUE;
    case WM_TIMER:
      if (wparam >= kFirstTimer && wparam - kFirstTimer < timers_.size()) {
        Raise(timers_[wparam - kFirstTimer]->tick);
      }
      return TRUE;
    case WM_SYSCOMMAND:  // Alt+F4 comes as one, too
      if ((wparam & kCommandBits) != SC_CLOSE) return FALSE;
      OnCloseBox();
      return TRUE;
    case WM_CLOSE:
      OnClose();
      return TRUE;
    case WM_QUERYENDSESSION:
      // Nothing is given up yet: somebody else may keep the session.
      SetWindowLongPtrW(window_, DWLP_MSGRESULT, TRUE);
      return TRUE;
    case WM_ENDSESSION:
      if (wparam != FALSE && close_program) close_program(CloseReason::EndOfSession);
      return TRUE;
    case WM_ENABLE:
      // A box from before, which is answered behind the modal window, gives its owner back.
      if (wparam != FALSE && modal_ != nullptr && modal_ != this) modal_->Hold(window_);
      return FALSE;
    case WM_DESTROY:
      window_ = nullptr;
      return TRUE;
    default:
      return FALSE;
  }
}

bool NativeForm::OnMessage(UINT, WPARAM, LPARAM, INT_PTR&) { return false; }

void NativeForm::OnCommand(int id, int notification) {
  if (id == IDCANCEL) return OnEscape();
  if (const auto command = commands_.find(id); command != commands_.end()) {
    command->second(notification);
  }
}

INT_PTR NativeForm::ColourText(HDC dc, int id) {
  const auto label = labels_.find(id);
  if (label == labels_.end() || label->second->fore_colour == 0) return FALSE;
  SetTextColor(dc, label->second->fore_colour);
  SetBkMode(dc, TRANSPARENT);
  return reinterpret_cast<INT_PTR>(GetSysColorBrush(COLOR_BTNFACE));
}

void NativeForm::Paint(const DRAWITEMSTRUCT& item) {
  const auto painter = painters_.find(static_cast<int>(item.CtlID));
  if (painter != painters_.end()) painter->second(item.hDC, item.rcItem);
}

}  // namespace vornalux
