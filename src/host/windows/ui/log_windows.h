// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/ui/anchors.h"
#include "host/windows/ui/native_form.h"
#include "ui/debug_window.h"
#include "ui/details_window.h"

namespace vornalux {

// The details window on the screen.
class NativeDetails final : public NativeForm {
 public:
  explicit NativeDetails(FrmDetails& details);

 private:
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;

  Anchors anchors_;
};

// The debug window on the screen.
class NativeDebug final : public NativeForm {
 public:
  explicit NativeDebug(FrmDBG& debug);
  ~NativeDebug() override;

 private:
  bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result) override;

  Anchors anchors_;
  HFONT font_;
};

}  // namespace vornalux
