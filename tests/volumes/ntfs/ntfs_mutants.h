// SPDX-License-Identifier: GPL-2.0-or-later
// NTFS volumes with one or two of their structures changed, as damage or a careless program would
// leave them: fixups are valid, so that the change is really read.
#pragma once

#include <string>
#include <vector>

#include "check/ntfs_check.h"
#include "support/devices.h"
#include "volumes/maker/maker_editor.h"

namespace vornalux::test {

struct Mutant {
  Bytes image;
  std::string what;  // what was changed
};

class NtfsMutants {
 public:
  explicit NtfsMutants(Bytes sound);

  const Bytes& Sound() const { return sound_; }
  Mutant Make(Random& random) const;

 private:
  struct Spot {  // an attribute
    std::uint64_t record = 0;
    std::size_t at = 0;
  };

  void Learn(NtfsEditor& editor, std::uint64_t number);

  Bytes sound_;
  CheckReport report_;
  std::vector<std::uint64_t> records_;  // in use
  std::vector<Spot> all_;
  std::vector<Spot> spread_;         // not resident
  std::vector<Spot> lists_;          // attribute lists
  std::vector<Spot> roots_;          // of indexes
  std::vector<std::size_t> blocks_;  // of indexes, bytes
  std::int64_t table_bitmap_ = 0;    // where the bitmap of $MFT lies
  std::vector<std::int64_t> owned_;  // clusters
};

}  // namespace vornalux::test
