// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/ui/anchors.h"
#include "host/windows/ui/native_form.h"
#include "ui/defrag_window.h"

namespace vornalux {

// The main window on the screen.
class NativeMainWindow final : public NativeForm {
 public:
  explicit NativeMainWindow(DefragWindow& main_window);

  // Hidden, the program has an icon in the notification area; without one the window waits on the
  // taskbar in its stead.
  void StandInForIcon(bool icon_shown);

 private:
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;
  void OnCloseBox() override { main_window_.QueryUnload(CloseReason::CloseBox); }
  void OnClose() override { close_program(CloseReason::TaskManager); }
  void OnEscape() override {}
  SIZE LeastSize() const override { return anchors_.LeastSize(); }
  void BindLegend();
  void BindStatusBar();
  void AnchorControls();
  void WidenForMenu();
  void ArrangePanels();
  // After a change of the window's size.
  void ArrangeWindow();
  int WidthOfMap() const;  // pixels, one column each

  DefragWindow& main_window_;
  Anchors anchors_;
  bool stands_in_ = false;
};

}  // namespace vornalux
