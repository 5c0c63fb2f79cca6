// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/taskbar_progress.h"

// After the header that it needs.
#include <shobjidl.h>

#include <utility>

namespace vornalux {

TaskbarProgress::~TaskbarProgress() {
  if (list_ != nullptr) list_->Release();
}

void TaskbarProgress::Show(HWND window, int percent) {
  constexpr ULONGLONG kWhole = 100;
  if (window == nullptr || std::exchange(shown_, percent) == percent) return;
  if (!std::exchange(tried_, true)) {
    // Older systems have the object but not this side of it.
    CoInitialize(nullptr);
    void* list = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_TaskbarList, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_ITaskbarList3, &list))) {
      list_ = static_cast<ITaskbarList3*>(list);
      list_->HrInit();
    }
  }
  if (list_ == nullptr) return;
  if (percent == kNone) {
    list_->SetProgressState(window, TBPF_NOPROGRESS);
  } else {
    list_->SetProgressValue(window, static_cast<ULONGLONG>(percent), kWhole);
  }
}

}  // namespace vornalux
