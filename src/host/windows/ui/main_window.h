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
  ~NativeMainWindow() override { DeleteObject(symbols_); }

 private:
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;
  void OnCloseBox() override { main_window_.QueryUnload(CloseReason::CloseBox); }
  void OnEscape() override {}
  void BindLegend();
  void BindStatusBar();
  void AnchorControls();
  void ArrangePanels();
  // After a change of the window's size.
  void ArrangeWindow();
  int WidthOfMap() const;  // pixels, one column each
  void SetUpGlyph();

  DefragWindow& main_window_;
  Anchors anchors_;
  HFONT symbols_ = nullptr;
};

}  // namespace vornalux
