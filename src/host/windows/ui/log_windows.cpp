// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/log_windows.h"

#include "host/windows/ui/resource.h"

namespace vornalux {
namespace {

// The height of a font of so many points on the screen, as CreateFont() takes it.
int PointHeight(int points) {
  const HDC screen = GetDC(nullptr);
  const int height = -MulDiv(points, GetDeviceCaps(screen, LOGPIXELSY), 72);
  ReleaseDC(nullptr, screen);
  return height;
}

// What windows of changing size have in common.
bool FollowsSize(const Anchors& anchors, UINT message, LPARAM lparam, INT_PTR& result) {
  if (message == WM_SIZE) anchors.Arrange();
  if (message == WM_GETMINMAXINFO) anchors.LimitSize(*reinterpret_cast<MINMAXINFO*>(lparam));
  result = TRUE;
  return message == WM_SIZE || message == WM_GETMINMAXINFO;
}

}  // namespace

NativeDetails::NativeDetails(FrmDetails& details)
    : NativeForm(details, IDD_DETAILS), anchors_(window()) {
  Bind(IDC_LIST, details.ListView1);
  Bind(IDC_DETAIL_LABEL5, details.Label5);
  for (std::size_t i = 0; i < details.Label4.size(); ++i) {
    const int step = static_cast<int>(i);
    Bind(IDC_DETAIL_SHAPE + step, details.Shape2[i]);
    Bind(IDC_DETAIL_LABEL + step, details.Label4[i]);
    Bind(IDC_DETAIL_COUNT + step, details.counts[i]);
  }
  Bind(IDC_DETAIL_BUTTON, details.Command1);
  Bind(IDC_DETAIL_BUTTON + 1, details.Command2);
  Bind(IDC_DETAIL_BUTTON + 2, details.Command3);
  using enum Anchors::Way;
  anchors_.Add(IDC_LIST, kGrowsRight | kGrowsDown);
  for (int id = IDC_DETAIL_SHAPE; id <= IDC_DETAIL_LABEL5; ++id) anchors_.Add(id, kMovesDown);
}

bool NativeDetails::OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) {
  // Buttons that stay down leave Enter to the window.
  const int focused = GetDlgCtrlID(GetFocus());
  if (message == WM_COMMAND && LOWORD(wparam) == IDOK && focused >= IDC_DETAIL_BUTTON &&
      focused < IDC_DETAIL_LABEL5) {
    SendMessageW(GetFocus(), BM_CLICK, 0, 0);
  }
  if (!FollowsSize(anchors_, message, lparam, result)) return false;
  ListView_SetColumnWidth(Item(IDC_LIST), 0, LVSCW_AUTOSIZE_USEHEADER);
  return true;
}

NativeDebug::NativeDebug(FrmDBG& debug)
    : NativeForm(debug, IDD_DEBUG),
      anchors_(window()),
      font_(CreateFontW(PointHeight(8), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                        OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, DEFAULT_QUALITY,
                        DEFAULT_PITCH | FF_DONTCARE, L"Lucida Sans Unicode")) {
  SendMessageW(Item(IDC_LOG), WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
  Bind(IDC_LOG, debug.DBGTXT);
  anchors_.Add(IDC_LOG, Anchors::kGrowsRight | Anchors::kGrowsDown);
}

NativeDebug::~NativeDebug() { DeleteObject(font_); }

bool NativeDebug::OnMessage(UINT message, WPARAM, LPARAM lparam, INT_PTR& result) {
  return FollowsSize(anchors_, message, lparam, result);
}

}  // namespace vornalux
