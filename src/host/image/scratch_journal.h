// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <system_error>

#include "host/image/image_volume.h"
#include "host/image/scratch_device.h"

namespace vornalux {

// The journal of a volume on a ScratchDevice: in memory too, since nothing outlives the run that it
// could mend.
class ScratchJournalHome final : public JournalHome {
 public:
  std::error_code Open(std::unique_ptr<BlockDevice>& store) override {
    store = std::make_unique<ScratchDevice>(nullptr, true);
    return {};
  }
  std::error_code Remove() override { return {}; }
};

}  // namespace vornalux
