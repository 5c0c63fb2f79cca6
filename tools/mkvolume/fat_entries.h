// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/simulated/seeded_random.h"

namespace vornalux::making {

// The entries of one FAT folder, in the order in which they are added. First clusters and
// sizes are filled in later, when it is known where everything lies.
class FatFolderEntries {
 public:
  // "." and "..", which every folder but the root begins with.
  void AddDots();
  // Returns where the entry is, for the setters. A long name is used when the short one cannot say
  // the same.
  std::size_t Add(const std::u16string& name, bool is_folder);
  // As Add(), then deleted.
  void AddDeleted(const std::u16string& name, std::uint32_t size);
  void SetCluster(std::size_t entry, std::uint32_t cluster);
  void SetSize(std::size_t entry, std::uint32_t size);

  std::size_t Count() const { return bytes_.size() / kEntry; }
  std::span<const std::uint8_t> Bytes() const { return bytes_; }

  static constexpr std::size_t kEntry = 32;
  static constexpr std::size_t kDot = 0;
  static constexpr std::size_t kDotDot = 1;

 private:
  using ShortName = std::array<std::uint8_t, 11>;

  ShortName Shorten(const std::u16string& name);
  void AddLongName(const std::u16string& name, const ShortName& short_name);
  void AddShort(const ShortName& name, std::uint8_t lower_case, bool is_folder);

  std::vector<std::uint8_t> bytes_;
  std::set<ShortName> taken_;
  std::uint32_t next_tail_ = 1;
};

}  // namespace vornalux::making
