// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "app/job_settings.h"
#include "app/launcher.h"
#include "platform/platform.h"
#include "ui/debug_window.h"
#include "ui/defrag_window.h"
#include "volume/debug_trace.h"
#include "volume/run_flags.h"

namespace vornalux {

// Everything that is shared, created once by the host. Functions take the parts that they need,
// never the whole.
struct Program {
  explicit Program(Platform host)
      : platform(host),
        trace(flags, debug_window),
        main_window(platform, flags, trace, debug_window),
        launcher(platform, flags, settings, trace, debug_window, main_window) {}

  Platform platform;
  RunFlags flags;
  JobSettings settings;
  FrmDBG debug_window;
  DebugTrace trace;
  DefragWindow main_window;
  Introfrm launcher;
};

}  // namespace vornalux
