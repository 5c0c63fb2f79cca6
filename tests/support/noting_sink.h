// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "health/disk_check.h"

namespace vornalux::test {

// Notes what a check of a volume tells, and may want its end each time.
struct NotingSink final : DiskCheckSink {
  explicit NotingSink(bool ends = false) : wants_end(ends) {}
  void Done(bool failed) override { notes += failed ? "failed " : "good "; }
  void Progress(std::int32_t percent, bool& cancel) override {
    Status(std::to_string(percent) + "%", cancel);
  }
  void Status(const std::string& line, bool& cancel) override {
    notes += line + " ";
    cancel = wants_end;
  }

  bool wants_end;
  std::string notes;
};

}  // namespace vornalux::test
