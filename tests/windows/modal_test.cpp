// SPDX-License-Identifier: GPL-2.0-or-later
// The temperature warning as a native window in front of another one, run by the system's messages.
#include <gtest/gtest.h>

#include "host/simulated/scripted_drive.h"
#include "host/simulated/simulated_platform.h"
#include "host/windows/ui/log_windows.h"
#include "host/windows/ui/resource.h"
#include "host/windows/ui/temperature_window.h"
#include "host/windows/ui/windows_desktop.h"

namespace vornalux {
namespace {

struct FakeRun final : WatchedRun {
  std::string notes;
  void StopWatching() override { notes += "watch no more "; }
  void StopRun() override { notes += "stop "; }
};

std::wstring TextOf(HWND window) {
  wchar_t text[200] = {};
  GetWindowTextW(window, text, 200);
  return text;
}

class ModalTest : public testing::Test {
 protected:
  ModalTest() {
    machine_.AddVolume('C', volume_);
    volume_.SetDrive(drive_);
    debug_.Show();
    SetActiveWindow(behind_.window());
  }

  HWND Control(int id) const { return GetDlgItem(native_.window(), id); }

  // Shows the warning. The message has been sent when it is first idle.
  void ShowAnd(UINT message, WPARAM wparam, LPARAM lparam, HWND to = nullptr) {
    warning_.Load(58);
    warning_.tmrTemperatures.enabled = true;
    PostMessageW(to != nullptr ? to : native_.window(), message, wparam, lparam);
    desktop_.ShowModal(warning_);
  }

  ScriptedDrive drive_;
  SimulatedVolume volume_{{}};
  SimulatedPlatform machine_;
  RunTarget target_ = {.drive = "C:\\", .directory = {}, .file_system = {}, .exclude = {}};
  RunFlags flags_;
  FrmDBG debug_;
  DebugTrace trace_{flags_, debug_};
  FakeRun run_;
  HDDTempWarning warning_{machine_, target_, trace_, run_};
  WindowsDesktop desktop_;
  NativeDebug behind_{debug_};
  NativeTemperatureWarning native_{warning_};
};

TEST_F(ModalTest, ButtonsTimerAndKeysWorkWhileAllElseIsHeld) {
  struct Case {
    const char* what;
    int button;  // clicked; 0: its timer ticks; -1: Escape, its close box and Enter one by one
    const char* notes;
  };
  drive_.SetTemperatures({60, 50});
  for (const Case& c : {Case{"continue", IDC_WARNING_CONTINUE, ""},
                        {"stop", IDC_WARNING_STOP, "watch no more stop "},
                        {"disable", IDC_WARNING_DISABLE, "watch no more "},
                        {"cools at the second tick", 0, ""},
                        {"Enter stops", -1, "watch no more stop "}}) {
    SCOPED_TRACE(c.what);
    run_.notes.clear();
    warning_.changed = [this, shown = warning_.changed] {
      shown();
      if (!warning_.visible) return;
      EXPECT_TRUE(IsWindowVisible(native_.window()));
      EXPECT_FALSE(IsWindowEnabled(behind_.window()));
      EXPECT_EQ(TextOf(Control(IDC_WARNING_TEMPERATURE)), L"58\u00B0C");
      EXPECT_EQ(TextOf(Control(IDC_WARNING_STOP)), L"&Stop defragmentation");
      EXPECT_EQ(TextOf(native_.window()), L"Waiting for disk to cool down ...");
    };
    if (c.button > 0) {
      ShowAnd(WM_COMMAND, MAKEWPARAM(c.button, BN_CLICKED), 0);
    } else if (c.button == 0) {
      PostMessageW(native_.window(), WM_TIMER, 1, 0);
      ShowAnd(WM_TIMER, 1, 0);
      EXPECT_EQ(drive_.Readings(), 2U);
      EXPECT_EQ(TextOf(Control(IDC_WARNING_TEMPERATURE)), L"60\u00B0C");
    } else {
      PostMessageW(native_.window(), WM_CLOSE, 0, 0);
      PostMessageW(native_.window(), WM_KEYDOWN, VK_ESCAPE, 0);
      ShowAnd(WM_KEYDOWN, VK_RETURN, 0, Control(IDC_WARNING_STOP));
    }
    EXPECT_EQ(run_.notes, c.notes);
    EXPECT_FALSE(warning_.visible);
    EXPECT_FALSE(IsWindowVisible(native_.window()));
    EXPECT_TRUE(IsWindowEnabled(behind_.window()));
    EXPECT_FALSE(desktop_.Ended());
  }
}

TEST_F(ModalTest, TheEndOfTheProgramEndsTheWait) {
  PostQuitMessage(7);
  ShowAnd(WM_NULL, 0, 0);
  EXPECT_TRUE(desktop_.Ended());
  EXPECT_FALSE(warning_.visible);
  EXPECT_TRUE(IsWindowEnabled(behind_.window()));
  MSG message = {};
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) && message.message != WM_QUIT) {
  }
  EXPECT_EQ(message.message, UINT{WM_QUIT}) << "for whoever waits further out";
  EXPECT_EQ(message.wParam, 7U);
}

}  // namespace
}  // namespace vornalux
