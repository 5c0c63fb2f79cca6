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

std::vector<std::uint8_t> LoadFile(const std::string& path);

// A single fault put into a sound volume, and words of the problem that must be reported.
template <typename Editor>
struct Damage {
  const char* name;
  std::function<void(Editor&)> apply;
  const char* expected;
};

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

 private:
  void Protected(ByteSpan record, const std::function<void(ByteSpan)>& edit);
};

class FatEditor {
 public:
  FatEditor(std::vector<std::uint8_t> image, const CheckReport& sound);

  std::vector<std::uint8_t> bytes;
  const CheckReport& report;

  // The table's entry for a cluster (2 up), in all copies or in one.
  std::uint32_t Next(std::uint32_t cluster) const;
  void SetNext(std::uint32_t cluster, std::uint32_t next);
  void SetNextInCopy(int copy, std::uint32_t cluster, std::uint32_t next);
  // The first cluster that is free.
  std::uint32_t FreeCluster() const;
  static std::uint32_t First(const CheckedItem& item) {
    return static_cast<std::uint32_t>(item.extents.at(0).lcn + 2);
  }
  static std::uint32_t Last(const CheckedItem& item) {
    const CheckedExtent& extent = item.extents.back();
    return static_cast<std::uint32_t>(extent.lcn + extent.count - 1 + 2);
  }
  // The n-th file with two clusters or more; the n-th folder that is not in the root.
  const CheckedItem& LongFile(std::size_t n) const;
  const CheckedItem& InnerFolder(std::size_t n) const;
  // The bytes of a folder's first cluster, and the entry with this item's first cluster.
  ByteSpan Folder(const CheckedItem& folder);
  ByteSpan EntryOf(const CheckedItem& item);
  ByteSpan Boot() { return ByteSpan(bytes).first(512); }
  // A short entry that follows a long name, in any folder; offset of its first long part.
  std::size_t LongNameAt();

 private:
  std::size_t tables_at_ = 0;
  std::size_t table_size_ = 0;
  int tables_ = 0;
  std::size_t data_at_ = 0;
  int bits_ = 0;
};

}  // namespace vornalux::test
