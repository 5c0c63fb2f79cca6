// SPDX-License-Identifier: GPL-2.0-or-later
// Pictures of the program's windows, for tools/make-window-pictures.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/simulated/scripted_drive.h"
#include "host/windows/system_headers.h"
#include "host/windows/ui/resource.h"
#include "play/flow.h"
#include "play/session.h"

namespace vornalux::play {
namespace {

// The window as it is on the screen, frame included, as a bitmap file.
void TakePicture(HWND window, const std::string& name) {
  SetWindowPos(window, HWND_TOPMOST, 40, 40, 0, 0, SWP_NOSIZE);
  SendMessageW(window, WM_NULL, 0, 0);
  RedrawWindow(window, nullptr, nullptr,
               RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_ALLCHILDREN | RDW_UPDATENOW);
  Sleep(500);  // until all of it has come to the display
  RECT area;
  GetWindowRect(window, &area);
  const LONG width = area.right - area.left, height = area.bottom - area.top;
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  const HDC screen = GetDC(nullptr);
  const HDC dc = CreateCompatibleDC(screen);
  void* bits = nullptr;
  const HBITMAP bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  const HGDIOBJ before = SelectObject(dc, bitmap);
  BitBlt(dc, 0, 0, width, height, screen, area.left, area.top, SRCCOPY);
  GdiFlush();
  const DWORD size = static_cast<DWORD>(width * height * 4);
  BITMAPFILEHEADER header = {};
  header.bfType = 0x4D42;
  header.bfOffBits = sizeof header + sizeof info.bmiHeader;
  header.bfSize = header.bfOffBits + size;
  const std::string path = std::string(std::getenv("VORNALUX_FLOW_RESULTS")) + name + ".bmp";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot write " + path);
  std::fwrite(&header, sizeof header, 1, file);
  std::fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, file);
  std::fwrite(bits, size, 1, file);
  std::fclose(file);
  SelectObject(dc, before);
  DeleteObject(bitmap);
  DeleteDC(dc);
  ReleaseDC(nullptr, screen);
  SetWindowPos(window, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
}

FLOW(PicturesOnRequest, "", WithCheckLibrary) {
  const Screen& screen = session.screen;
  session.Start();
  screen.UntilShown("the launcher", &Screen::Launcher);
  screen.Press(screen.Launcher(), IDC_MORE);
  screen.Until("the options",
               [&] { return Screen::Text(screen.Launcher(), IDC_MORE) == "More <<"; });
  TakePicture(screen.Launcher(), "launcher");

  screen.Press(screen.Launcher(), IDC_SELECT);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  screen.Run(IDM_ANALYZE);
  screen.Press(screen.Main(), IDC_LEGEND_LABEL4 + 1);
  screen.UntilShown("the details", &Screen::Details);
  TakePicture(screen.Details(), "details");
  PostMessageW(screen.Details(), WM_CLOSE, 0, 0);
  screen.Until("the details go", [&] { return !Screen::Shown(screen.Details()); });

  HANDLE moving = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  HANDLE seen = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  session.machine.Drives().Faults().BeforeMove({.path = {}, .nth = 60}, [moving, seen] {
    SetEvent(moving);
    // The run stands still, and its windows are painted, until the picture has been taken.
    MSG message;
    while (MsgWaitForMultipleObjects(1, &seen, FALSE, INFINITE, QS_SENDMESSAGE | QS_PAINT) !=
           WAIT_OBJECT_0) {
      while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE | PM_QS_SENDMESSAGE | PM_QS_PAINT)) {
        DispatchMessageW(&message);
      }
    }
  });
  screen.Menu(IDM_OPTIMIZE);
  WaitForSingleObject(moving, INFINITE);
  TakePicture(screen.Main(), "running");
  SetEvent(seen);
  screen.UntilIdle();
}

FLOW(LogPictureOnRequest, "/drv C: /d /dbg", Alone) {
  session.Start();
  const Screen& screen = session.screen;
  screen.Until("the run begins", [&screen] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  screen.UntilShown("the log", &Screen::Debug);
  TakePicture(screen.Debug(), "debug");
}

FLOW(WarningPictureOnRequest, "/drv C: /o", Alone) {
  ScriptedDrive disk;
  disk.SetTemperatures({58});
  session.machine.C().SetDrive(disk);
  const Screen& screen = session.screen;
  session.machine.Drives().Faults().BeforeMove({.path = {}, .nth = 5},
                                               [&screen] { screen.Tick(screen.Main(), 30000); });
  session.Start();
  screen.UntilShown("the warning", &Screen::Warning);
  TakePicture(screen.Warning(), "warning");
}

FLOW(ContextPictureOnRequest, "-setshell", Alone) {
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the settings", &Screen::Context);
  TakePicture(screen.Context(), "context");
}

}  // namespace
}  // namespace vornalux::play
