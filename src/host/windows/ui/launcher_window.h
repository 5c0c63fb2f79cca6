// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>

#include "app/launcher.h"
#include "host/windows/ui/anchors.h"
#include "host/windows/ui/native_form.h"

namespace vornalux {

// The launcher on the screen.
class NativeLauncher final : public NativeForm {
 public:
  NativeLauncher(Introfrm& launcher, DefragWindow& main_window);
  ~NativeLauncher() override;

  // Explorer has a notification area again, without the icons that were in it.
  std::function<void()> taskbar_created;

 private:
  bool TakesCommands() const override { return true; }
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;
  void OnCloseBox() override;
  void OnClose() override { close_program(CloseReason::TaskManager); }
  void OnEscape() override {
    if (launcher_.CmdCancel.visible) launcher_.CmdCancel.Click();
  }
  // The job options, while they are folded away, are not there.
  void ShowState(int id, const Control& control) const override;
  SIZE LeastSize() const override;
  void TakePlace(const RECT& place) override;
  void AnchorControls();
  void BindJobOptions();
  void LoadDrivePictures();
  // Folds the dialog so that it ends above or below the job options.
  void Fold();

  Introfrm& launcher_;
  DefragWindow& main_window_;
  Anchors anchors_;
  UINT taskbar_created_;
  LONG full_height_ = 0;   // pixels
  LONG taken_height_ = 0;  // of the place of another window
  HIMAGELIST pictures_ = nullptr;
};

}  // namespace vornalux
