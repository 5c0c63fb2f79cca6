// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/ui/native_form.h"
#include "shell/context_window.h"

namespace vornalux {

// The context-menu settings on the screen.
class NativeContext final : public NativeForm {
 public:
  explicit NativeContext(frmContext& context);

 private:
  bool TakesCommands() const override { return true; }
  void OnCloseBox() override { context_.cmdCancel.Click(); }

  frmContext& context_;
};

}  // namespace vornalux
