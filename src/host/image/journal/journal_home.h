// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <system_error>

#include "host/image/device/block_device.h"

namespace vornalux {

// Where a volume's journal is kept. Open() gives the store, which exists durably from then on (its
// folder entry too); Remove() deletes it durably.
class JournalHome {
 public:
  virtual ~JournalHome() = default;
  virtual std::error_code Open(std::shared_ptr<BlockDevice>& store) = 0;
  virtual std::error_code Remove() = 0;
};

}  // namespace vornalux
