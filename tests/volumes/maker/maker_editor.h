// SPDX-License-Identifier: GPL-2.0-or-later
// Breaking made volumes on purpose, in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "check/report.h"

namespace vornalux::test {

using ByteSpan = std::span<std::uint8_t>;

std::uint64_t Get(ByteSpan bytes, std::size_t at, std::size_t width);
void Put(ByteSpan bytes, std::size_t at, std::size_t width, std::uint64_t value);

class NtfsEditor {
 public:
  // sound: the report of the image as it is.
  NtfsEditor(std::vector<std::uint8_t> image, const CheckReport& sound)
      : bytes(std::move(image)), report(sound) {}

  std::vector<std::uint8_t> bytes;
  const CheckReport& report;

  ByteSpan At(std::int64_t lcn) {
    return ByteSpan(bytes).subspan(static_cast<std::size_t>(lcn) * Cluster());
  }
  std::size_t Cluster() const { return report.cluster_size; }

  // An item with so many clusters in one extent, not resident; the n-th of them.
  const CheckedItem& Whole(std::size_t n) const;
  const CheckedItem& Meta(const std::string& path, const std::string& stream = "") const;

  // Edits a file record, or an index block, with its fixups undone and made anew afterwards; of
  // records 0 to 3 the mirror as well.
  void Record(std::uint64_t number, const std::function<void(ByteSpan)>& edit);
  void Block(std::int64_t lcn, const std::function<void(ByteSpan)>& edit);
  // Edits the first attribute of this type (and stream name length) in a record.
  void Attribute(std::uint64_t number, std::uint32_t type,
                 const std::function<void(ByteSpan)>& edit, std::size_t name_length = 0);
  ByteSpan RawRecord(std::uint64_t number);
  // Where it stands in a record. Throws when there is none.
  static std::size_t FindAttribute(ByteSpan record, std::uint32_t type, std::size_t name_length);

  // The LCN at which the runs of an attribute begin.
  static std::int64_t FirstLcn(ByteSpan attribute);
  // The entry of an item's attribute list, not resident, that names a data piece with a VCN above
  // 0.
  ByteSpan LaterDataEntry(std::uint64_t number);
  void FlipClusterBit(std::int64_t lcn);
  bool ClusterBit(std::int64_t lcn);

 private:
  void Protected(ByteSpan record, const std::function<void(ByteSpan)>& edit);
};

}  // namespace vornalux::test
