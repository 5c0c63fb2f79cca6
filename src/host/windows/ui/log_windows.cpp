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

}  // namespace

NativeDetails::NativeDetails(FrmDetails& details) : NativeForm(details, IDD_DETAILS) {
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
}

NativeDebug::NativeDebug(FrmDBG& debug)
    : NativeForm(debug, IDD_DEBUG),
      font_(CreateFontW(PointHeight(8), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                        OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, DEFAULT_QUALITY,
                        DEFAULT_PITCH | FF_DONTCARE, L"Lucida Sans Unicode")) {
  SendMessageW(Item(IDC_LOG), WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
  Bind(IDC_LOG, debug.DBGTXT);
}

NativeDebug::~NativeDebug() { DeleteObject(font_); }

bool NativeDebug::OnMessage(UINT message, WPARAM, LPARAM lparam, INT_PTR& result) {
  if (message != WM_SIZE) return false;
  MoveWindow(Item(IDC_LOG), 0, 0, LOWORD(lparam), HIWORD(lparam), TRUE);
  result = TRUE;
  return true;
}

}  // namespace vornalux
