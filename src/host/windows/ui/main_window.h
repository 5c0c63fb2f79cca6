// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/ui/anchors.h"
#include "host/windows/ui/native_form.h"
#include "host/windows/ui/taskbar_progress.h"
#include "ui/defrag_window.h"

namespace vornalux {

// The main window on the screen.
class NativeMainWindow final : public NativeForm {
 public:
  explicit NativeMainWindow(DefragWindow& main_window);

  // Hidden, the program has an icon in the notification area; without one the window waits on the
  // taskbar in its stead.
  void StandInForIcon(bool icon_shown);

  // Told of each whole percent of a run, for whoever shows it elsewhere.
  std::function<void(int percent)> progressed;
  // Told what a run has done when it has ended.
  std::function<void(const std::string& result)> ended;

 private:
  bool TakesCommands() const override { return true; }
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;
  void OnCloseBox() override { main_window_.QueryUnload(CloseReason::CloseBox); }
  void OnClose() override { close_program(CloseReason::TaskManager); }
  void OnEscape() override {}
  bool OnKey(WPARAM key, bool alt) override;
  SIZE LeastSize() const override;
  void BindLegend();
  void BindStatusBar();
  void BindProgress();
  void AnchorControls();
  void WidenForMenu();
  void ArrangePanels();
  // Makes the window so wide that the panels can be read.
  void WidenForPanels();
  // After a change of the window's size.
  void ArrangeWindow();
  int WidthOfMap() const;  // pixels, one column each

  DefragWindow& main_window_;
  Anchors anchors_;
  TaskbarProgress taskbar_;
  int percent_ = TaskbarProgress::kNone;  // of the run
  LONG panels_width_ = 0;                 // pixels that the panels need
  bool stands_in_ = false;
};

}  // namespace vornalux
