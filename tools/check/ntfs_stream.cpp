// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_stream.h"

#include <algorithm>
#include <cstring>

#include "check/content.h"

namespace vornalux::checking {
namespace {

constexpr std::size_t kBufferSize = 1U << 20;
// A corrupt size may ask for an eternity of zeros; so many times the volume is enough for holes.
constexpr std::uint64_t kZeroBudget = 64;

}  // namespace

bool ReadStream(const RawNtfsVolume& volume, const std::vector<CheckedExtent>& extents,
                std::uint64_t at, std::span<std::uint8_t> out) {
  const std::uint64_t cluster = volume.geometry.cluster;
  auto extent = std::upper_bound(extents.begin(), extents.end(), at / cluster,
                                 [](std::uint64_t vcn, const CheckedExtent& e) {
                                   return vcn < static_cast<std::uint64_t>(e.vcn + e.count);
                                 });
  while (!out.empty()) {
    if (extent == extents.end() || static_cast<std::uint64_t>(extent->vcn) > at / cluster) {
      return false;
    }
    const std::uint64_t inside = at - static_cast<std::uint64_t>(extent->vcn) * cluster;
    const std::uint64_t left = static_cast<std::uint64_t>(extent->count) * cluster - inside;
    const auto part =
        out.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, out.size())));
    if (extent->lcn < 0) {
      std::fill(part.begin(), part.end(), std::uint8_t{0});
    } else if (!volume.ReadClusters(extent->lcn, inside, part)) {
      return false;
    }
    out = out.subspan(part.size());
    at += part.size();
    ++extent;
  }
  return true;
}

std::optional<std::vector<std::uint8_t>> ReadWhole(const RawNtfsVolume& volume,
                                                   const NtfsStream& stream, std::uint64_t limit) {
  if (stream.resident) return std::vector<std::uint8_t>(stream.value.begin(), stream.value.end());
  if (stream.size > limit || stream.Compressed()) return std::nullopt;
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stream.size));
  if (!ReadStream(volume, stream.extents, 0, bytes)) return std::nullopt;
  if (stream.initialized < stream.size) {
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(stream.initialized), bytes.end(),
              std::uint8_t{0});
  }
  return bytes;
}

// Feeds a hash with no more than so many bytes: a last unit or cluster goes past the end.
class NtfsHasher::Sink {
 public:
  explicit Sink(std::uint64_t size) : left_(size) {}

  std::uint64_t Left() const { return left_; }
  void Add(Bytes bytes) {
    const Bytes part =
        Part(bytes, 0, static_cast<std::size_t>(std::min<std::uint64_t>(left_, bytes.size())));
    hash_.Add(part);
    left_ -= part.size();
  }
  void AddZeros(std::uint64_t count) {
    count = std::min(count, left_);
    hash_.AddZeros(count);
    left_ -= count;
  }
  std::string Finish() { return hash_.Finish(); }

 private:
  ContentHash hash_;
  std::uint64_t left_;
};

NtfsHasher::NtfsHasher(const RawNtfsVolume& volume, Problems& problems)
    : volume_(volume),
      problems_(problems),
      // Each cluster belongs to one stream, so a sound volume is read once.
      read_budget_(2 * static_cast<std::uint64_t>(volume.geometry.clusters) *
                   volume.geometry.cluster),
      zero_budget_(kZeroBudget * (read_budget_ / 2)),
      buffer_(kBufferSize) {}

std::string NtfsHasher::Hash(std::uint64_t record, const NtfsStream& stream) {
  Sink sink(stream.size);
  if (stream.resident) {
    sink.Add(stream.value);
    return sink.Finish();
  }
  if (stream.size > zero_budget_ + read_budget_) {
    problems_.Add(NameStream(record, stream.type, stream.name),
                  ": too large to read: ", stream.size, " bytes");
    return {};
  }
  const bool read = stream.Compressed() ? Compressed(stream, sink) : Plain(stream, sink);
  if (!read || sink.Left() > zero_budget_) {
    problems_.Add(NameStream(record, stream.type, stream.name), ": content cannot be read from ",
                  stream.size - sink.Left(), " on");
    return {};
  }
  zero_budget_ -= sink.Left();
  sink.AddZeros(sink.Left());
  return sink.Finish();
}

bool NtfsHasher::ReadBudgeted(const std::vector<CheckedExtent>& extents, std::uint64_t at,
                              std::span<std::uint8_t> out) {
  if (out.size() > read_budget_) return false;
  read_budget_ -= out.size();
  return ReadStream(volume_, extents, at, out);
}

bool NtfsHasher::Plain(const NtfsStream& stream, Sink& sink) {
  const std::uint64_t cluster = volume_.geometry.cluster;
  std::uint64_t left = std::min(stream.initialized, stream.size);
  for (const CheckedExtent& extent : stream.extents) {
    const std::uint64_t bytes = std::min(left, static_cast<std::uint64_t>(extent.count) * cluster);
    if (extent.lcn < 0) {
      if (bytes > zero_budget_) return false;
      zero_budget_ -= bytes;
      sink.AddZeros(bytes);
    }
    for (std::uint64_t done = 0; extent.lcn >= 0 && done < bytes;) {
      const std::span<std::uint8_t> part(
          buffer_.data(),
          static_cast<std::size_t>(std::min<std::uint64_t>(bytes - done, buffer_.size())));
      if (part.size() > read_budget_ || !volume_.ReadClusters(extent.lcn, done, part)) return false;
      read_budget_ -= part.size();
      sink.Add(part);
      done += part.size();
    }
    left -= bytes;
  }
  return left == 0;
}

bool NtfsHasher::Compressed(const NtfsStream& stream, Sink& sink) {
  if (stream.compression_unit == 0 || stream.compression_unit > 8) return false;
  const std::int64_t unit = std::int64_t{1} << stream.compression_unit;
  const std::size_t unit_bytes = static_cast<std::size_t>(unit) * volume_.geometry.cluster;
  if (unit_bytes > (16U << 20)) return false;
  std::vector<std::uint8_t> stored(unit_bytes);
  std::vector<std::uint8_t> expanded(unit_bytes);
  const std::uint64_t initialized = std::min(stream.initialized, stream.size);
  auto extent = stream.extents.begin();
  for (std::int64_t vcn = 0;
       static_cast<std::uint64_t>(vcn) * volume_.geometry.cluster < initialized; vcn += unit) {
    // Clusters of this unit that exist; they come first.
    std::int64_t real = 0;
    while (extent != stream.extents.end() && extent->vcn + extent->count <= vcn) ++extent;
    for (auto e = extent; e != stream.extents.end() && e->vcn < vcn + unit; ++e) {
      if (e->lcn < 0) continue;
      real += std::min(e->vcn + e->count, vcn + unit) - std::max(e->vcn, vcn);
    }
    const std::uint64_t at = static_cast<std::uint64_t>(vcn) * volume_.geometry.cluster;
    const std::uint64_t wanted = std::min<std::uint64_t>(unit_bytes, initialized - at);
    if (real == 0) {
      if (wanted > zero_budget_) return false;
      zero_budget_ -= wanted;
      sink.AddZeros(wanted);
      continue;
    }
    const auto part = std::span<std::uint8_t>(stored).first(static_cast<std::size_t>(real) *
                                                            volume_.geometry.cluster);
    if (!ReadBudgeted(stream.extents, at, part)) return false;
    const bool plain = real == unit;
    if (!plain && !ExpandUnit(part, expanded)) return false;
    sink.Add(Part(plain ? stored : expanded, 0, static_cast<std::size_t>(wanted)));
  }
  return true;
}

bool ExpandUnit(Bytes compressed, std::span<std::uint8_t> out) {
  constexpr std::size_t kChunk = 4096;
  std::size_t to = 0;
  std::size_t from = 0;
  while (from + 2 <= compressed.size() && to < out.size()) {
    const std::uint16_t header = Load16(compressed, from);
    if (header == 0) break;
    const std::size_t length = (header & 0xFFFU) + 1U;
    from += 2;
    if (!Inside(from, length, compressed.size())) return false;
    const std::size_t end = from + length;
    const std::size_t start = to;
    const std::size_t limit = std::min(out.size(), start + kChunk);
    if ((header & 0x8000) == 0) {
      const std::size_t count = std::min(length, limit - to);
      std::memcpy(out.data() + to, compressed.data() + from, count);
      to += count;
      from = end;
    }
    while (from < end) {
      std::uint8_t flags = compressed[from++];
      for (int bit = 0; bit < 8 && from < end;
           ++bit, flags = static_cast<std::uint8_t>(flags >> 1)) {
        if ((flags & 1) == 0) {
          if (to >= limit) return false;
          out[to++] = compressed[from++];
          continue;
        }
        if (from + 2 > end || to == start) return false;
        // The further into the chunk, the more of the 16 bits say how far back.
        unsigned length_bits = 12;
        for (std::size_t reach = to - start - 1; reach >= 0x10; reach >>= 1) --length_bits;
        const std::uint16_t token = Load16(compressed, from);
        from += 2;
        const std::size_t back = (std::size_t{token} >> length_bits) + 1;
        const std::size_t count = (token & ((1U << length_bits) - 1U)) + 3U;
        if (back > to - start || count > limit - to) return false;
        for (std::size_t i = 0; i < count; ++i, ++to) out[to] = out[to - back];
      }
    }
    // A chunk that gives less than 4096 bytes stands for zeros from there on.
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(to),
              out.begin() + static_cast<std::ptrdiff_t>(limit), std::uint8_t{0});
    to = limit;
  }
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(to), out.end(), std::uint8_t{0});
  return true;
}

}  // namespace vornalux::checking
