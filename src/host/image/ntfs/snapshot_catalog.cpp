// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/snapshot_catalog.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <set>
#include <span>

#include "host/image/device/little_endian.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kHeaderOffset = 0x1E00;  // of the volume, the last sector of $Boot
constexpr std::size_t kHeaderBytes = 512;
constexpr std::size_t kBlockBytes = 16384;
constexpr std::size_t kEntryBytes = 128;  // the head of a block takes one entry's place
constexpr std::size_t kMostBlocks = 64;   // Windows keeps 512 snapshots at most, two entries each
constexpr std::size_t kMostTimesShown = 8;

// kSnapshotFileMark as it is stored.
constexpr std::array<std::uint8_t, 16> kMark = {0x6B, 0x87, 0x08, 0x38, 0x76, 0xC1, 0x48, 0x4E,
                                                0xB7, 0xAE, 0x04, 0x04, 0x6E, 0x6C, 0xC7, 0x52};

enum RecordType : std::uint32_t { kHeader = 1, kCatalogBlock = 2 };
enum EntryType : std::uint64_t { kEnd = 0, kFree = 1, kSnapshot = 2, kStore = 3 };

using Bytes = std::span<const std::uint8_t>;
using Identifier = std::array<std::uint8_t, 16>;

bool HasMark(Bytes record) { return std::equal(kMark.begin(), kMark.end(), record.begin()); }

// Empty when mark, version and type are those of such a record.
std::string WrongHead(Bytes record, RecordType type) {
  if (!HasMark(record)) return "has not their identifier";
  const auto version = LoadLittle<std::uint32_t>(record, 16);
  if (version != 1 && version != 2) return "is of the unknown version " + std::to_string(version);
  const auto found = LoadLittle<std::uint32_t>(record, 20);
  return found == type ? "" : "is of the wrong type " + std::to_string(found);
}

class CatalogReader {
 public:
  explicit CatalogReader(BlockDevice& volume) : volume_(volume) {}

  SnapshotCatalog Read() {
    SnapshotCatalog catalog;
    catalog.damage = ReadChain();
    for (const auto& [store, time] : times_) catalog.times.push_back(time);
    std::sort(catalog.times.begin(), catalog.times.end());
    return catalog;
  }

 private:
  std::string ReadChain() {
    if (volume_.Size() < kHeaderOffset + kHeaderBytes) return "";
    std::array<std::uint8_t, kHeaderBytes> header{};
    if (const std::error_code error = volume_.Read(kHeaderOffset, header)) {
      return "their header cannot be read: " + error.message();
    }
    if (!HasMark(header)) return "";
    if (const std::string wrong = WrongHead(header, kHeader); !wrong.empty()) {
      return "their header " + wrong;
    }
    std::set<std::uint64_t> seen;
    for (auto at = LoadLittle<std::uint64_t>(header, 48); at != 0;) {
      const std::string block = "catalog block at byte " + std::to_string(at);
      if (!seen.insert(at).second) return block + " comes twice";
      if (seen.size() > kMostBlocks) return "the catalog has too many blocks";
      if (at > volume_.Size() || volume_.Size() - at < kBlockBytes) {
        return block + " leaves the volume";
      }
      if (const std::error_code error = volume_.Read(at, block_)) {
        return block + " cannot be read: " + error.message();
      }
      if (const std::string wrong = WrongHead(block_, kCatalogBlock); !wrong.empty()) {
        return block + " " + wrong;
      }
      if (!ReadEntries()) return block + " has an entry of unknown type";
      at = LoadLittle<std::uint64_t>(block_, 40);
    }
    return "";
  }

  bool ReadEntries() {
    for (std::size_t at = kEntryBytes; at < kBlockBytes; at += kEntryBytes) {
      const Bytes entry = Bytes(block_).subspan(at, kEntryBytes);
      const auto type = LoadLittle<std::uint64_t>(entry, 0);
      if (type == kEnd || type == kFree) continue;
      if (type != kSnapshot && type != kStore) return false;
      // A snapshot has an entry of each type, or only one where its store lies on another volume.
      Identifier store;
      std::copy_n(entry.begin() + 16, store.size(), store.begin());
      std::uint64_t& time = times_[store];
      if (type == kSnapshot) time = std::max(time, LoadLittle<std::uint64_t>(entry, 48));
    }
    return true;
  }

  BlockDevice& volume_;
  std::array<std::uint8_t, kBlockBytes> block_{};
  std::map<Identifier, std::uint64_t> times_;
};

// A FILETIME as "2019-03-01 12:00:00 UTC".
std::string TimeText(std::uint64_t time) {
  using namespace std::chrono;
  constexpr std::uint64_t kPerSecond = 10'000'000;
  constexpr std::uint64_t kYear10000 = 265'046'774'400 * kPerSecond;
  constexpr std::int64_t kFrom1601To1970 = 11'644'473'600;
  if (time == 0 || time >= kYear10000) return "an unknown date";
  const sys_seconds moment(seconds(static_cast<std::int64_t>(time / kPerSecond) - kFrom1601To1970));
  const auto day = floor<days>(moment);
  const year_month_day date(day);
  const hh_mm_ss clock(moment - day);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d UTC",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text.data();
}

}  // namespace

SnapshotCatalog ReadSnapshotCatalog(BlockDevice& volume) { return CatalogReader(volume).Read(); }

std::error_code ForgetSnapshots(BlockDevice& volume) {
  return volume.Write(kHeaderOffset, std::array<std::uint8_t, kHeaderBytes>{});
}

std::string SnapshotCount(const SnapshotCatalog& catalog) {
  const std::size_t count = catalog.times.size();
  if (count == 1) return "1 restore point (volume shadow copy)";
  // A damaged catalog may hide any number of them.
  return (count == 0 ? "" : std::to_string(count) + " ") + "restore points (volume shadow copies)";
}

std::string SnapshotText(const SnapshotCatalog& catalog) {
  const std::size_t count = catalog.times.size();
  std::string text = SnapshotCount(catalog);
  if (count == 0) return text + " whose catalog cannot be read: " + catalog.damage;
  const std::size_t shown = std::min(count, kMostTimesShown);
  for (std::size_t i = 0; i < shown; ++i) {
    text += i == 0 ? ", of " : i + 1 == count ? " and " : ", ";
    text += TimeText(catalog.times[i]);
  }
  if (shown < count) text += " and " + std::to_string(count - shown) + " later times";
  if (catalog.damage.empty()) return text;
  return text + "; their catalog cannot be read to its end: " + catalog.damage;
}

}  // namespace vornalux
