// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "forms/controls.h"
#include "volume/debug_trace.h"

namespace vornalux {

// The debug window: the log as one growing text.
class FrmDBG final : public Form, public LogSink {
 public:
  FrmDBG() : Form("Debug") {}

  LogBox DBGTXT;

  void Append(std::string_view text) override { DBGTXT.Append(text); }
};

}  // namespace vornalux
