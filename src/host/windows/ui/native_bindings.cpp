// SPDX-License-Identifier: GPL-2.0-or-later
// How each kind of control shows and is heard.
#include <algorithm>
#include <cstdint>
#include <utility>

#include "host/windows/ui/native_form.h"
#include "host/windows/ui/picture_painting.h"
#include "host/windows/ui/window_text.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr DWORD kPaintMilliseconds = 20;

// A run that outlives its window goes on showing. No window would be all of the screen.
void Repaint(HWND window, const RECT* area, BOOL erase) {
  if (window != nullptr) InvalidateRect(window, area, erase);
}

void Fill(HDC dc, const RECT& area, Colour colour) {
  const HBRUSH brush = CreateSolidBrush(colour);
  FillRect(dc, &area, brush);
  DeleteObject(brush);
}

}  // namespace

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

void NativeForm::ShowAtOnce(Label& label) {
  label.changed = [this, show = label.changed] {
    show();
    if (window_ == nullptr) return;
    RedrawWindow(window_, nullptr, nullptr, RDW_ERASENOW | RDW_UPDATENOW | RDW_ALLCHILDREN);
  };
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
  if (!box.tool_tip.empty()) AddToolTip(id, box.tool_tip);
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
  painters_[id] = [&picture](HDC dc, const RECT& area) { ShowPicture(dc, area, picture); };
  commands_[id] = [&picture](int notification) {
    if (notification == STN_CLICKED) Raise(picture.click);
  };
  picture.changed = [this, id, &picture] { ShowState(id, picture); };
  picture.refreshed = [this, id, &picture,
                       painted = DWORD{0}](std::span<const ColumnRange> changed) mutable {
    if (changed.empty() || window_ == nullptr) return;
    for (const ColumnRange& columns : changed) {
      const RECT area = AreaOf(columns, Item(id), picture);
      Repaint(Item(id), &area, FALSE);
    }
    // No faster than can be seen: painting costs more than the drawing. The rest comes with the
    // events.
    const DWORD now = GetTickCount();
    if (now - painted < kPaintMilliseconds) return;
    painted = now;
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

}  // namespace vornalux
