// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/context_window.h"

#include "host/windows/ui/resource.h"

namespace vornalux {

NativeContext::NativeContext(frmContext& context)
    : NativeForm(context, IDD_CONTEXT), context_(context) {
  Bind(IDC_CONTEXT_FRAME, context.Frame1);
  Bind(IDC_CONTEXT_DRIVES, context.LblDrives);
  Bind(IDC_CONTEXT_FOLDERS, context.LblFolders);
  for (std::size_t i = 0; i < context.Check1.size(); ++i) {
    Bind(IDC_CONTEXT_CHECK + static_cast<int>(i), context.Check1[i]);
  }
  Bind(IDC_CONTEXT_OK, context.cmdOK);
  Bind(IDC_CONTEXT_APPLY, context.cmdApply);
  Bind(IDC_CONTEXT_CANCEL, context.cmdCancel);
}

}  // namespace vornalux
