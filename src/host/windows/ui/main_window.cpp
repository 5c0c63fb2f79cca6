// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/main_window.h"

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "host/windows/ui/redraw_glyph.h"
#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

int IdOf(Pass pass) {
  switch (pass) {
    case Pass::Defrag:
      break;
    case Pass::Optimize:
      return IDM_OPTIMIZE;
    case Pass::Compact:
      return IDM_COMPACT;
  }
  return IDM_DEFRAG;
}

}  // namespace

NativeMainWindow::NativeMainWindow(DefragWindow& main_window)
    : NativeForm(main_window, IDD_MAIN), main_window_(main_window), anchors_(window()) {
  Bind(IDM_DRIVE, main_window.Quitter);
  Bind(IDM_STOP, main_window.Arretdefrag);
  Bind(IDM_ANALYZE, main_window.cmdanalysemore);
  for (const PassRow& row : kPasses) Bind(IdOf(row.pass), main_window.PassItem(row.pass));
  Bind(IDM_THOROUGH, main_window.thorough);
  Bind(IDM_MINIMIZE, main_window.minmnu);
  Bind(IDM_EXIT, main_window.exitmnu);
  Bind(IDM_REPORT, main_window.savereport);
  Bind(IDC_MAP, main_window.Picdepartvolume);
  Bind(IDC_REDRAW, main_window.LblRedraw);
  Bind(IDC_STATUS_LINE, main_window.etfich);
  Bind(IDC_RESULT_LINE, main_window.result_line);
  Bind(IDC_PROGRESS, main_window.progress);
  Bind(IDC_TEMPERATURE, main_window.Label6);
  Bind(IDC_ACTIVITY, main_window.activity);
  Bind(IDC_REDRAW_EACH, main_window.Affiche);
  Bind(IDC_HIDE_NAMES, main_window.ChkNoFileDisplay);
  Bind(main_window.UpdateTimer);
  Bind(main_window.tmrTemperatures);
  BindLegend();
  BindStatusBar();
  PaintBy(IDC_REDRAW, [&glyph = main_window.LblRedraw](HDC dc, const RECT& area) {
    PaintRedrawGlyph(dc, area, glyph.fore_colour);
  });
  AnchorControls();
  WidenForMenu();
  main_window.Picdepartvolume.Resize(WidthOfMap());
}

// Room that the user gives goes to the map.
void NativeMainWindow::AnchorControls() {
  using enum Anchors::Way;
  anchors_.Add(IDC_MAP, kGrowsRight | kGrowsDown);
  anchors_.Add(IDC_REDRAW, kMovesRight);
  for (int id = IDC_LEGEND_SHAPE; id <= IDC_LEGEND_LABEL5; ++id) {
    if (Item(id) != nullptr) anchors_.Add(id, kMovesDown);
  }
  for (const int id : {IDC_STATUS_LINE, IDC_PROGRESS, IDC_RESULT_LINE})
    anchors_.Add(id, kGrowsRight | kMovesDown);
  anchors_.Add(IDC_TEMPERATURE, kMovesDown);
  for (const int id : {IDC_ACTIVITY, IDC_REDRAW_EACH, IDC_HIDE_NAMES}) {
    anchors_.Add(id, kMovesRight | kMovesDown);
  }
}

// A second row of the menu's bar would cover what is at the bottom: with the mark that it may show,
// and in whatever font, there has to be room for one.
void NativeMainWindow::WidenForMenu() {
  const HMENU menu = GetMenu(window());
  const auto show = [this](bool checked) {
    ShowCheck(IDM_THOROUGH, checked);
    DrawMenuBar(window());
  };
  show(true);
  LONG needed = 2 * GetSystemMetrics(SM_CXEDGE);
  for (int i = 0; i < GetMenuItemCount(menu); ++i) {
    RECT item = {};
    GetMenuItemRect(window(), menu, static_cast<UINT>(i), &item);
    needed += item.right - item.left;
  }
  show(main_window_.thorough.checked);
  RECT area, frame;
  GetClientRect(window(), &area);
  GetWindowRect(window(), &frame);
  const LONG more = std::max<LONG>(needed - area.right, 0);
  SetWindowPos(window(), nullptr, 0, 0, frame.right - frame.left + more, frame.bottom - frame.top,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  anchors_.TakeLeastSize();
}

void NativeMainWindow::BindLegend() {
  int id = IDC_LEGEND_SHAPE;
  for (Shape& shape : main_window_.Shape2) Bind(id++, shape);
  Bind(IDC_LEGEND_INNER, main_window_.Shape4);
  id = IDC_LEGEND_LABEL1;
  for (Label& label : main_window_.Label1) Bind(id++, label);
  id = IDC_LEGEND_LABEL4;
  for (Label& label : main_window_.Label4) Bind(id++, label);
  Bind(IDC_LEGEND_LABEL5, main_window_.Label5);
}

void NativeMainWindow::BindStatusBar() {
  CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP, 0, 0, 0, 0,
                  window(), reinterpret_cast<HMENU>(INT_PTR{IDC_STATUS_BAR}),
                  GetModuleHandleW(nullptr), nullptr);
  for (std::size_t i = 0; i < main_window_.status_panels.size(); ++i) {
    Label& panel = main_window_.status_panels[i];
    panel.changed = [this, i, &panel] {
      const std::wstring text = ToWide(panel.caption.get());
      SendMessageW(Item(IDC_STATUS_BAR), SB_SETTEXTW, i, reinterpret_cast<LPARAM>(text.c_str()));
      ArrangePanels();
    };
    panel.changed();
    AtEnd([&panel] { panel.changed = nullptr; });
  }
}

// Each panel as wide as its text, and an equal part of what is left.
void NativeMainWindow::ArrangePanels() {
  constexpr int kPanels = std::tuple_size_v<decltype(main_window_.status_panels)>;
  const HWND bar = Item(IDC_STATUS_BAR);
  RECT area;
  GetClientRect(bar, &area);
  const HDC dc = GetDC(bar);
  const HGDIOBJ before =
      SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(bar, WM_GETFONT, 0, 0)));
  std::array<int, kPanels> ends;
  int end = 0;
  for (std::size_t i = 0; i < ends.size(); ++i) {
    const std::wstring text = ToWide(main_window_.status_panels[i].caption.get());
    SIZE size = {};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
    end += size.cx + 2 * GetSystemMetrics(SM_CXEDGE) + size.cy / 2;
    ends[i] = end;
  }
  SelectObject(dc, before);
  ReleaseDC(bar, dc);
  const int left = std::max(static_cast<int>(area.right) - end, 0);
  for (std::size_t i = 0; i < ends.size(); ++i) ends[i] += left * static_cast<int>(i + 1) / kPanels;
  SendMessageW(bar, SB_SETPARTS, ends.size(), reinterpret_cast<LPARAM>(ends.data()));
}

int NativeMainWindow::WidthOfMap() const {
  RECT area;
  GetClientRect(Item(IDC_MAP), &area);
  return area.right;
}

void NativeMainWindow::ArrangeWindow() {
  SendMessageW(Item(IDC_STATUS_BAR), WM_SIZE, 0, 0);
  ArrangePanels();
  anchors_.Arrange();
  main_window_.Picdepartvolume.ResizeAtNextClear(WidthOfMap());
  InvalidateRect(Item(IDC_MAP), nullptr, FALSE);
}

void NativeMainWindow::StandInForIcon(bool icon_shown) {
  if (icon_shown) {
    if (std::exchange(stands_in_, false)) main_window_.Hide();
    return;
  }
  stands_in_ = true;
  main_window_.window_state = WindowState::Minimized;
  main_window_.Show();
}

bool NativeMainWindow::OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) {
  switch (message) {
    case WM_SIZE:
      main_window_.window_state =
          wparam == SIZE_MINIMIZED ? WindowState::Minimized : WindowState::Normal;
      if (!stands_in_) main_window_.Resized();
      if (wparam != SIZE_MINIMIZED) {
        // The user took it from the taskbar: no icon is wanted any more.
        if (std::exchange(stands_in_, false)) main_window_.launcher->cleanup_systray();
        ArrangeWindow();
      }
      result = TRUE;
      return true;
    case WM_GETMINMAXINFO:
      anchors_.LimitSize(*reinterpret_cast<MINMAXINFO*>(lparam));
      result = TRUE;
      return true;
    default:
      return false;
  }
}

}  // namespace vornalux
