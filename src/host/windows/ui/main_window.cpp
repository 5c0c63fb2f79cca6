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
  BindProgress();
  AddToolTip(IDC_MAP, "Redraw (F5)");
  for (std::size_t i = 0; i < main_window.Label4.size(); ++i) {
    AddToolTip(IDC_LEGEND_LABEL4 + static_cast<int>(i), "View details (Alt+Enter)");
  }
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

// On top of what the controls show of it by themselves.
void NativeMainWindow::BindProgress() {
  const auto follow = [this] {
    const ProgressBar& bar = main_window_.progress;
    const double range = static_cast<double>(std::max<std::int64_t>(bar.maximum - bar.minimum, 1));
    const int percent =
        main_window_.Busy()
            ? static_cast<int>(100 * static_cast<double>(bar.value - bar.minimum) / range)
            : TaskbarProgress::kNone;
    if (std::exchange(percent_, percent) == percent) return;
    taskbar_.Show(window(), percent);
    if (percent != TaskbarProgress::kNone && progressed) progressed(percent);
  };
  for (Observable* shown : {static_cast<Observable*>(&main_window_.progress),
                            static_cast<Observable*>(&main_window_.exitmnu)}) {
    shown->changed = [follow, show = shown->changed] {
      show();
      follow();
    };
  }
  Label& line = main_window_.result_line;
  line.changed = [this, &line, show = line.changed] {
    show();
    if (!line.caption.get().empty() && !main_window_.Busy() && ended) ended(line.caption);
  };
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
      WidenForPanels();
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
  ends.back() = end += GetSystemMetrics(SM_CXVSCROLL);  // where the size grip is
  panels_width_ = end;
  SelectObject(dc, before);
  ReleaseDC(bar, dc);
  const int left = std::max(static_cast<int>(area.right) - end, 0);
  for (std::size_t i = 0; i < ends.size(); ++i) ends[i] += left * static_cast<int>(i + 1) / kPanels;
  SendMessageW(bar, SB_SETPARTS, ends.size(), reinterpret_cast<LPARAM>(ends.data()));
}

SIZE NativeMainWindow::LeastSize() const {
  SIZE least = anchors_.LeastSize();
  RECT frame, area;
  GetWindowRect(window(), &frame);
  GetClientRect(window(), &area);
  const LONG room = GetSystemMetrics(SM_CXFULLSCREEN);
  if (!IsIconic(window())) {
    least.cx =
        std::max(least.cx, std::min(panels_width_ + frame.right - frame.left - area.right, room));
  }
  return least;
}

void NativeMainWindow::WidenForPanels() {
  RECT frame;
  GetWindowRect(window(), &frame);
  if (IsZoomed(window()) || IsIconic(window()) || LeastSize().cx <= frame.right - frame.left) {
    return;
  }
  SetWindowPos(window(), nullptr, 0, 0, LeastSize().cx, frame.bottom - frame.top,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
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

bool NativeMainWindow::OnKey(WPARAM key, bool alt) {
  if (key == VK_F5 && !alt && main_window_.Picdepartvolume.visible) {
    Raise(main_window_.Picdepartvolume.click);
    return true;
  }
  if (key != VK_RETURN || !alt) return false;
  main_window_.details.Open();
  return true;
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
      reinterpret_cast<MINMAXINFO*>(lparam)->ptMinTrackSize = {LeastSize().cx, LeastSize().cy};
      result = TRUE;
      return true;
    default:
      return false;
  }
}

}  // namespace vornalux
