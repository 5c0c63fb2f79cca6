// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/temperature_window.h"

#include "host/windows/ui/resource.h"

namespace vornalux {
namespace {

constexpr LONG kTimesLarger = 3;

// The dialog's own font, which follows the screen's resolution, only larger.
HFONT LargeFont(HWND dialog) {
  LOGFONTW font = {};
  GetObjectW(reinterpret_cast<HFONT>(SendMessageW(dialog, WM_GETFONT, 0, 0)), sizeof font, &font);
  font.lfHeight *= kTimesLarger;
  font.lfWeight = FW_BOLD;
  return CreateFontIndirectW(&font);
}

}  // namespace

NativeTemperatureWarning::NativeTemperatureWarning(HDDTempWarning& warning)
    : NativeForm(warning, IDD_TEMPERATURE), large_(LargeFont(window())) {
  SendMessageW(Item(IDC_WARNING_TEMPERATURE), WM_SETFONT, reinterpret_cast<WPARAM>(large_), FALSE);
  Bind(IDC_WARNING_TEMPERATURE, warning.LblHDDTemp);
  Bind(IDC_WARNING_DRIVE, warning.LblDrive);
  Bind(IDC_WARNING_TEXT, warning.Label1);
  Bind(IDC_WARNING_CONTINUE, warning.Command3);
  Bind(IDC_WARNING_STOP, warning.Command2);
  Bind(IDC_WARNING_DISABLE, warning.Command1);
  Bind(warning.tmrTemperatures);
}

NativeTemperatureWarning::~NativeTemperatureWarning() { DeleteObject(large_); }

}  // namespace vornalux
