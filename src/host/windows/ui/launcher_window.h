// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "app/launcher.h"
#include "host/windows/ui/native_form.h"

namespace vornalux {

// The launcher on the screen.
class NativeLauncher final : public NativeForm {
 public:
  NativeLauncher(Introfrm& launcher, DefragWindow& main_window);
  ~NativeLauncher() override;

 private:
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;
  void OnCloseBox() override;
  void OnEscape() override {
    if (launcher_.CmdCancel.visible) launcher_.CmdCancel.Click();
  }
  void BindJobOptions();
  void LoadDrivePictures();
  // Folds the dialog so that it ends above or below the job options.
  void Fold();

  Introfrm& launcher_;
  DefragWindow& main_window_;
  int full_height_ = 0;  // pixels
  HIMAGELIST pictures_ = nullptr;
};

}  // namespace vornalux
