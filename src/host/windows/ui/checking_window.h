// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "app/launcher.h"
#include "host/windows/ui/native_form.h"
#include "host/windows/ui/resource.h"

namespace vornalux {

// What is shown while the volumes are checked before there is another window.
class NativeChecking final : public NativeForm {
 public:
  explicit NativeChecking(frmChecking& checking)
      : NativeForm(checking, IDD_CHECKING), checking_(checking) {
    Bind(IDC_CHECKING_CANCEL, checking.CmdCancel);
    Bind(IDC_CHECKING_DRIVE, checking.LblChecking);
    ShowAtOnce(checking.LblChecking);
  }

 private:
  void OnCloseBox() override { checking_.CmdCancel.Click(); }

  frmChecking& checking_;
};

}  // namespace vornalux
