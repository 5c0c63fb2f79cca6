// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/main_window.h"

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <tuple>

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
  Bind(IDM_MINIMIZE, main_window.minmnu);
  Bind(IDM_EXIT, main_window.exitmnu);
  Bind(IDC_MAP, main_window.Picdepartvolume);
  Bind(IDC_REDRAW, main_window.LblRedraw);
  Bind(IDC_STATUS_LINE, main_window.etfich);
  Bind(IDC_PROGRESS, main_window.progress);
  Bind(IDC_TEMPERATURE, main_window.Label6);
  Bind(IDC_ACTIVITY, main_window.activity);
  Bind(IDC_REDRAW_EACH, main_window.Affiche);
  Bind(IDC_HIDE_NAMES, main_window.ChkNoFileDisplay);
  Bind(main_window.UpdateTimer);
  Bind(main_window.tmrTemperatures);
  BindLegend();
  BindStatusBar();
  SetUpGlyph();
  AnchorControls();
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
  for (const int id : {IDC_STATUS_LINE, IDC_PROGRESS}) anchors_.Add(id, kGrowsRight | kMovesDown);
  anchors_.Add(IDC_TEMPERATURE, kMovesDown);
  for (const int id : {IDC_ACTIVITY, IDC_REDRAW_EACH, IDC_HIDE_NAMES}) {
    anchors_.Add(id, kMovesRight | kMovesDown);
  }
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

// The glyph that lights up is a letter of a font of symbols.
void NativeMainWindow::SetUpGlyph() {
  LOGFONTW font = {};
  GetObjectW(reinterpret_cast<HFONT>(SendMessageW(window(), WM_GETFONT, 0, 0)), sizeof font, &font);
  font.lfCharSet = SYMBOL_CHARSET;
  lstrcpyW(font.lfFaceName, L"Webdings");
  symbols_ = CreateFontIndirectW(&font);
  SendMessageW(Item(IDC_REDRAW), WM_SETFONT, reinterpret_cast<WPARAM>(symbols_), FALSE);
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

bool NativeMainWindow::OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) {
  switch (message) {
    case WM_SIZE:
      main_window_.window_state =
          wparam == SIZE_MINIMIZED ? WindowState::Minimized : WindowState::Normal;
      main_window_.Resized();
      if (wparam != SIZE_MINIMIZED) ArrangeWindow();
      result = TRUE;
      return true;
    case WM_GETMINMAXINFO:
      anchors_.LimitSize(*reinterpret_cast<MINMAXINFO*>(lparam));
      result = TRUE;
      return true;
    case WM_CTLCOLORSTATIC:
      if (GetDlgCtrlID(reinterpret_cast<HWND>(lparam)) != IDC_REDRAW) return false;
      SetTextColor(reinterpret_cast<HDC>(wparam), main_window_.LblRedraw.fore_colour);
      SetBkMode(reinterpret_cast<HDC>(wparam), TRANSPARENT);
      result = reinterpret_cast<INT_PTR>(GetStockObject(BLACK_BRUSH));
      return true;
    case WM_QUERYENDSESSION:
      main_window_.QueryUnload(CloseReason::EndOfSession);
      if (window() != nullptr) SetWindowLongPtrW(window(), DWLP_MSGRESULT, TRUE);
      result = TRUE;
      return true;
    default:
      return false;
  }
}

}  // namespace vornalux
