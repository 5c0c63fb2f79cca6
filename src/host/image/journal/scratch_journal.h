// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <system_error>
#include <utility>

#include "host/image/device/scratch_device.h"
#include "host/image/journal/journal_home.h"

namespace vornalux {

// The journal of a volume on a ScratchDevice. It is in memory too: nothing of such a run remains
// that a journal could mend. It starts as a copy of the one that an interrupted run left, if any.
class ScratchJournalHome final : public JournalHome {
 public:
  explicit ScratchJournalHome(std::shared_ptr<BlockDevice> left = nullptr)
      : store_(std::make_shared<ScratchDevice>(std::move(left), true)) {}

  std::error_code Open(std::shared_ptr<BlockDevice>& store) override {
    store = store_;
    return {};
  }
  std::error_code Remove() override {
    store_ = std::make_shared<ScratchDevice>(nullptr, true);
    return {};
  }

 private:
  std::shared_ptr<ScratchDevice> store_;
};

}  // namespace vornalux
