// SPDX-License-Identifier: GPL-2.0-or-later
// The system's headers, with what they and the interfaces would both like to call themselves put
// right. Included by source files only.
#pragma once

#include <windows.h>

// After the one that they need.
#include <commctrl.h>
#include <winioctl.h>
#include <winternl.h>

#include "platform/types.h"

// A macro that would rename the methods of that name.
#undef ExitWindows

namespace vornalux {

inline HANDLE Native(Handle handle) { return reinterpret_cast<HANDLE>(handle); }
inline Handle Portable(HANDLE handle) { return reinterpret_cast<Handle>(handle); }

// Why the last call failed: never kSuccess, whatever a driver left behind.
inline ErrorCode LastError() {
  const ErrorCode error = GetLastError();
  return error != error::kSuccess ? error : error::kGenFailure;
}

// A function of a library by its name or MAKEINTRESOURCEA(ordinal); null when there is none.
template <typename Function>
Function* Procedure(HMODULE library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

}  // namespace vornalux
