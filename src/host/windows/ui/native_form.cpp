// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/native_form.h"

#include <commctrl.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr UINT_PTR kFirstTimer = 1;
constexpr WPARAM kCommandBits = 0xFFF0;  // of a system command

std::vector<NativeForm*>& Forms() {
  static std::vector<NativeForm*> forms;
  return forms;
}

void SetText(HWND window, const std::string& text) {
  const std::wstring wide = ToWide(text);
  // A text that stays would flicker.
  std::wstring shown(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
  shown.resize(static_cast<std::size_t>(
      GetWindowTextW(window, shown.data(), static_cast<int>(shown.size()))));
  if (shown != wide) SetWindowTextW(window, wide.c_str());
}

std::string TextOf(HWND window) {
  std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
  text.resize(
      static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
  return FromWide(text);
}

// A run that outlives its window goes on showing. No window would be all of the screen.
void Repaint(HWND window, const RECT* area, BOOL erase) {
  if (window != nullptr) InvalidateRect(window, area, erase);
}

void Fill(HDC dc, const RECT& area, Colour colour) {
  const HBRUSH brush = CreateSolidBrush(colour);
  FillRect(dc, &area, brush);
  DeleteObject(brush);
}

// The columns of a picture that is to fill the area and of which something in the clip box shows.
ColumnRange ColumnsIn(HDC dc, const RECT& area, const PictureBox& picture) {
  const auto width = static_cast<std::int32_t>(picture.shown().size());
  RECT clip;
  const bool as_wide = area.right - area.left == width;
  if (!as_wide || GetClipBox(dc, &clip) == ERROR) return {0, width};
  const auto column = [&](LONG x) {
    return static_cast<std::int32_t>(std::clamp<LONG>(x - area.left, 0, width));
  };
  return {column(clip.left), column(clip.right)};
}

// One row of pixels, which the system makes as high as the area. What another window covered comes
// back as it was; of what need not be painted anew nothing is made. A picture that is stretched is
// painted as a whole.
void Show(HDC dc, const RECT& area, const PictureBox& picture) {
  const auto width = static_cast<std::int32_t>(picture.shown().size());
  const ColumnRange columns = ColumnsIn(dc, area, picture);
  if (columns.Empty()) return;
  const bool whole = columns.first == 0 && columns.end == width;
  const LONG left = area.left + columns.first;
  const LONG right = whole ? area.right : area.left + columns.end;
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = columns.end - columns.first;
  info.bmiHeader.biHeight = 1;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  std::vector<std::uint32_t> row;
  row.reserve(static_cast<std::size_t>(columns.end - columns.first));
  for (std::int32_t x = columns.first; x < columns.end; ++x) {
    const Colour c = picture.shown()[static_cast<std::size_t>(x)];
    row.push_back((c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF));
  }
  StretchDIBits(dc, left, area.top, right - left, area.bottom - area.top, 0, 0,
                info.bmiHeader.biWidth, 1, row.data(), &info, DIB_RGB_COLORS, SRCCOPY);
}

// Where columns show on a control that may have another width than the picture.
RECT AreaOf(ColumnRange columns, HWND control, const PictureBox& picture) {
  RECT area;
  GetClientRect(control, &area);
  const auto shown = [width = area.right, &picture](std::int32_t x) {
    return static_cast<LONG>(std::int64_t{x} * width / picture.width());
  };
  const bool stretched = area.right != picture.width();
  const LONG margin = stretched ? 1 + area.right / picture.width() : 0;
  area.left = shown(columns.first) - margin;
  area.right = shown(columns.end) + margin;
  return area;
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

void NativeForm::OnUnload() {
  if (window_ != nullptr) DestroyWindow(window_);
}

bool NativeForm::TakesMessage(MSG& message) {
  return std::any_of(Forms().begin(), Forms().end(), [&message](const NativeForm* form) {
    return form->window_ != nullptr && IsDialogMessageW(form->window_, &message);
  });
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

void NativeForm::ShowState(int id, const Control& control) const {
  SetState(id, control.visible, control.enabled);
}

// What cannot be seen takes no key either, and keeps the keyboard from nobody.
void NativeForm::SetState(int id, bool visible, bool enabled) const {
  if (!(visible && enabled) && window_ != nullptr && GetFocus() == Item(id)) {
    SendMessageW(window_, WM_NEXTDLGCTL, FALSE, FALSE);
  }
  EnableWindow(Item(id), visible && enabled);
  ShowWindow(Item(id), visible ? SW_SHOWNA : SW_HIDE);
}

void NativeForm::Bind(int id, Label& label) {
  labels_[id] = &label;
  label.changed = [this, id, &label] {
    ShowState(id, label);
    SetText(Item(id), label.caption);
    Repaint(Item(id), nullptr, TRUE);
  };
  label.changed();
  commands_[id] = [&label](int notification) {
    if (notification == STN_CLICKED) Raise(label.click);
  };
  unbind_.push_back([&label] { label.changed = nullptr; });
}

void NativeForm::Bind(int id, Button& button) {
  button.changed = [this, id, &button] {
    ShowState(id, button);
    SetText(Item(id), button.caption);
    // Held down, where the template has a button that can be.
    SendMessageW(Item(id), BM_SETCHECK, button.marked ? BST_CHECKED : BST_UNCHECKED, 0);
  };
  button.changed();
  if (!button.tool_tip.empty()) AddToolTip(id, button.tool_tip);
  commands_[id] = [&button](int notification) {
    if (notification == BN_CLICKED) button.Click();
  };
  unbind_.push_back([&button] { button.changed = nullptr; });
}

void NativeForm::AddToolTip(int id, const std::string& text) {
  if (tool_tips_ == nullptr) {
    tool_tips_ = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP,
                                 CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT,
                                 window_, nullptr, GetModuleHandleW(nullptr), nullptr);
  }
  std::wstring wide = ToWide(text);
  TTTOOLINFOW tool = {};
  tool.cbSize = TTTOOLINFOW_V2_SIZE;  // the form that every version of the library knows
  tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
  tool.hwnd = window_;
  tool.uId = reinterpret_cast<UINT_PTR>(Item(id));
  tool.lpszText = wide.data();
  SendMessageW(tool_tips_, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
}

void NativeForm::Bind(int id, Frame& frame) {
  frame.changed = [this, id, &frame] {
    ShowState(id, frame);
    SetText(Item(id), frame.caption);
  };
  frame.changed();
  unbind_.push_back([&frame] { frame.changed = nullptr; });
}

void NativeForm::BindCheck(int id, CommandControl& control, Property<bool>& value) {
  control.changed = [this, id, &control, &value] {
    ShowState(id, control);
    SetText(Item(id), control.caption);
    SendMessageW(Item(id), BM_SETCHECK, value ? BST_CHECKED : BST_UNCHECKED, 0);
  };
  control.changed();
  unbind_.push_back([&control] { control.changed = nullptr; });
}

void NativeForm::Bind(int id, OptionButton& option) {
  BindCheck(id, option, option.value);
  // Arrow keys select as they go: what is chosen already is no choice.
  commands_[id] = [&option](int notification) {
    if (notification == BN_CLICKED && !option.value) option.Click();
  };
}

void NativeForm::Bind(int id, CheckBox& box) {
  BindCheck(id, box, box.value);
  commands_[id] = [&box](int notification) {
    if (notification == BN_CLICKED) box.Click();
  };
}

void NativeForm::Bind(int id, TextBox& box) {
  box.changed = [this, id, &box] {
    ShowState(id, box);
    pushing_ = true;
    SetText(Item(id), box.text);
    pushing_ = false;
  };
  box.changed();
  commands_[id] = [this, id, &box](int notification) {
    if (notification == EN_CHANGE && !pushing_) box.text = TextOf(Item(id));
  };
  unbind_.push_back([&box] { box.changed = nullptr; });
}

void NativeForm::Bind(int id, LogBox& log) {
  SendMessageW(Item(id), EM_SETLIMITTEXT, 0, 0);  // as much as there is memory for
  SetText(Item(id), log.text());
  log.appended = [this, id](std::string_view more) {
    const std::wstring text = ToWide(std::string(more));
    const int end = GetWindowTextLengthW(Item(id));
    SendMessageW(Item(id), EM_SETSEL, static_cast<WPARAM>(end), end);
    SendMessageW(Item(id), EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
    SendMessageW(Item(id), WM_VSCROLL, SB_BOTTOM, 0);
  };
  log.changed = [this, id, &log] { SetText(Item(id), log.text()); };
  unbind_.push_back([&log] {
    log.appended = nullptr;
    log.changed = nullptr;
  });
}

void NativeForm::Bind(int id, ProgressBar& bar) {
  constexpr std::int64_t kSteps = 10000;  // the native bar counts in 32 bits
  bar.changed = [this, id, &bar] {
    ShowState(id, bar);
    const double range = static_cast<double>(std::max<std::int64_t>(bar.maximum - bar.minimum, 1));
    const double done = static_cast<double>(bar.value - bar.minimum);
    SendMessageW(Item(id), PBM_SETPOS, static_cast<WPARAM>(kSteps * done / range), 0);
  };
  SendMessageW(Item(id), PBM_SETRANGE32, 0, kSteps);
  bar.changed();
  unbind_.push_back([&bar] { bar.changed = nullptr; });
}

void NativeForm::Bind(int id, ListView& list) {
  const HWND native = Item(id);
  std::wstring heading = ToWide(list.column_heading);
  LVCOLUMNW column = {};
  column.mask = LVCF_TEXT | LVCF_WIDTH;
  column.pszText = heading.data();
  RECT area;
  GetClientRect(native, &area);
  column.cx = area.right - GetSystemMetrics(SM_CXVSCROLL);
  SendMessageW(native, LVM_INSERTCOLUMNW, 0, reinterpret_cast<LPARAM>(&column));
  list.changed = [this, id, &list] {
    ShowState(id, list);
    const HWND view = Item(id);
    auto shown = static_cast<std::size_t>(ListView_GetItemCount(view));
    if (shown > list.rows().size()) {
      ListView_DeleteAllItems(view);
      shown = 0;
    }
    for (; shown < list.rows().size(); ++shown) {
      std::wstring text = ToWide(list.rows()[shown]);
      LVITEMW item = {};
      item.mask = LVIF_TEXT;
      item.iItem = static_cast<int>(shown);
      item.pszText = text.data();
      SendMessageW(view, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
    }
  };
  list.changed();
  unbind_.push_back([&list] { list.changed = nullptr; });
}

void NativeForm::Bind(int id, ComboBox& combo) {
  combo.changed = [this, id, &combo] {
    ShowState(id, combo);
    const HWND native = Item(id);
    auto shown = static_cast<std::size_t>(SendMessageW(native, CB_GETCOUNT, 0, 0));
    if (shown > combo.items().size()) {
      SendMessageW(native, CB_RESETCONTENT, 0, 0);
      shown = 0;
    }
    for (; shown < combo.items().size(); ++shown) {
      std::wstring text = ToWide(combo.items()[shown]);
      COMBOBOXEXITEMW item = {};
      item.mask = CBEIF_TEXT;
      item.iItem = -1;  // at the end
      item.pszText = text.data();
      if (combo.images()[shown] >= 0) {
        item.mask |= CBEIF_IMAGE | CBEIF_SELECTEDIMAGE;
        item.iImage = item.iSelectedImage = combo.images()[shown];
      }
      SendMessageW(native, CBEM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
    }
    SendMessageW(native, CB_SETCURSEL, static_cast<WPARAM>(combo.list_index.get()), 0);
  };
  combo.changed();
  commands_[id] = [this, id, &combo](int notification) {
    // A list that closes may show another item than was chosen last: the one under the mouse, or,
    // when it is given up, the one from before. What is shown is what is chosen.
    if (notification == CBN_SELENDCANCEL) combo.changed();
    const auto shown = static_cast<std::int32_t>(SendMessageW(Item(id), CB_GETCURSEL, 0, 0));
    const bool closed_on_another = notification == CBN_CLOSEUP && shown != combo.list_index;
    if (notification == CBN_SELCHANGE || closed_on_another) combo.Choose(shown);
    if (closed_on_another) combo.changed();
  };
  unbind_.push_back([&combo] { combo.changed = nullptr; });
}

void NativeForm::Bind(int id, Shape& shape) {
  painters_[id] = [&shape](HDC dc, const RECT& area) { Fill(dc, area, shape.fill_colour); };
  shape.changed = [this, id, &shape] {
    ShowState(id, shape);
    Repaint(Item(id), nullptr, FALSE);
  };
  unbind_.push_back([&shape] { shape.changed = nullptr; });
}

void NativeForm::Bind(int id, PictureBox& picture) {
  painters_[id] = [&picture](HDC dc, const RECT& area) { Show(dc, area, picture); };
  commands_[id] = [&picture](int notification) {
    if (notification == STN_CLICKED) Raise(picture.click);
  };
  picture.changed = [this, id, &picture] { ShowState(id, picture); };
  picture.refreshed = [this, id, &picture](std::span<const ColumnRange> changed) {
    if (changed.empty() || window_ == nullptr) return;
    for (const ColumnRange& columns : changed) {
      const RECT area = AreaOf(columns, Item(id), picture);
      Repaint(Item(id), &area, FALSE);
    }
    UpdateWindow(Item(id));
  };
  unbind_.push_back([&picture] {
    picture.changed = nullptr;
    picture.refreshed = nullptr;
  });
}

// In the bar itself Windows shows no check mark, so that it stands in the text as well.
void NativeForm::ShowCheck(UINT id, bool checked) const {
  static const std::wstring mark = L"\x221A ";  // in every font of every system
  const HMENU menu = GetMenu(window_);
  if (menu == nullptr) return;  // the window has gone
  if (((GetMenuState(menu, id, MF_BYCOMMAND) & MF_CHECKED) != 0) == checked) return;
  wchar_t text[64] = {};
  GetMenuStringW(menu, id, text, 63, MF_BYCOMMAND);
  std::wstring marked = checked ? mark + text : std::wstring(text).substr(mark.size());
  MENUITEMINFOW item = {};
  item.cbSize = sizeof item;
  item.fMask = MIIM_STRING;
  item.dwTypeData = marked.data();
  SetMenuItemInfoW(menu, id, FALSE, &item);
  CheckMenuItem(menu, id, MF_BYCOMMAND | static_cast<UINT>(checked ? MF_CHECKED : MF_UNCHECKED));
}

void NativeForm::Bind(int id, MenuItem& item) {
  item.changed = [this, id, &item] {
    ShowCheck(static_cast<UINT>(id), item.checked);
    EnableMenuItem(GetMenu(window_), static_cast<UINT>(id),
                   MF_BYCOMMAND | static_cast<UINT>(item.enabled ? MF_ENABLED : MF_GRAYED));
    DrawMenuBar(window_);
  };
  item.changed();
  commands_[id] = [&item](int) { item.Click(); };
  unbind_.push_back([&item] { item.changed = nullptr; });
}

void NativeForm::Bind(Timer& timer) {
  timers_.push_back(&timer);
  const UINT_PTR id = kFirstTimer + timers_.size() - 1;
  timer.changed = [this, id, &timer] {
    if (timer.enabled) {
      SetTimer(window_, id, static_cast<UINT>(timer.interval), nullptr);
    } else {
      KillTimer(window_, id);
    }
  };
  timer.changed();
  unbind_.push_back([&timer] { timer.changed = nullptr; });
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
