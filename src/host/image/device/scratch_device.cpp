// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/device/scratch_device.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "host/image/device/in_memory.h"

namespace vornalux {
namespace {

// Memory is had in pieces of at most so many bytes, so that little of one stays behind when most of
// it has been written over.
constexpr std::size_t kPiece = 4096;

std::error_code Error(std::errc code) { return std::make_error_code(code); }

}  // namespace

ScratchDevice::ScratchDevice(std::shared_ptr<BlockDevice> base, bool growable)
    : base_(std::move(base)),
      base_size_(base_ ? base_->Size() : 0),
      growable_(growable),
      size_(base_size_) {}

bool ScratchDevice::Inside(std::uint64_t offset, std::uint64_t length) const {
  return offset <= size_ && length <= size_ - offset;
}

ScratchDevice::Stretch ScratchDevice::Slice(const Stretch& stretch, std::uint64_t skip,
                                            std::uint64_t length) {
  return {std::min(length, stretch.length - skip), stretch.start + skip, stretch.memory};
}

ScratchDevice::Stretch ScratchDevice::At(std::uint64_t offset, std::uint64_t length) const {
  const auto next = stretches_.upper_bound(offset);
  if (next != stretches_.begin()) {
    const auto& [start, stretch] = *std::prev(next);
    if (offset - start < stretch.length) return Slice(stretch, offset - start, length);
  }
  if (next != stretches_.end()) length = std::min(length, next->first - offset);
  return {length, offset, nullptr};
}

std::error_code ScratchDevice::ReadBase(std::uint64_t offset, std::span<std::uint8_t> out) {
  const std::uint64_t there = offset < base_size_ ? base_size_ - offset : 0;
  const std::size_t length = AtMost(out.size(), there);
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(length), out.end(), std::uint8_t{0});
  return length == 0 ? std::error_code() : base_->Read(offset, out.first(length));
}

std::error_code ScratchDevice::Read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (!Inside(offset, out.size())) return Error(std::errc::invalid_argument);
  while (!out.empty()) {
    const Stretch stretch = At(offset, out.size());
    const std::size_t length = AtMost(out.size(), stretch.length);
    if (stretch.memory) {
      std::memcpy(out.data(), stretch.memory->data() + stretch.start, length);
    } else if (const auto error = ReadBase(stretch.start, out.first(length))) {
      return error;
    }
    offset += length;
    out = out.subspan(length);
  }
  return {};
}

std::error_code ScratchDevice::Write(std::uint64_t offset, std::span<const std::uint8_t> data) try {
  const std::uint64_t limit = growable_ ? std::numeric_limits<std::uint64_t>::max() : size_;
  if (offset > limit || data.size() > limit - offset) return Error(std::errc::invalid_argument);
  while (!data.empty()) {
    const std::size_t length = AtMost(data.size(), kPiece - offset % kPiece);
    WritePiece(offset, data.first(length));
    offset += length;
    size_ = std::max(size_, offset);
    data = data.subspan(length);
  }
  return {};
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

void ScratchDevice::WritePiece(std::uint64_t offset, std::span<const std::uint8_t> data) {
  // Metadata is written again and again in the same places.
  const auto next = stretches_.upper_bound(offset);
  if (next != stretches_.begin()) {
    const auto& [start, stretch] = *std::prev(next);
    const std::uint64_t skip = offset - start;
    if (stretch.memory.use_count() == 1 && skip < stretch.length &&
        data.size() <= stretch.length - skip) {
      std::memcpy(stretch.memory->data() + stretch.start + skip, data.data(), data.size());
      return;
    }
  }
  Replace(offset, {data.size(), 0, std::make_shared<Memory>(data.begin(), data.end())});
}

std::error_code ScratchDevice::Copy(std::uint64_t from, std::uint64_t to,
                                    std::uint64_t length) try {
  if (!Inside(from, length) || !Inside(to, length)) return Error(std::errc::invalid_argument);
  std::vector<Stretch> source;
  for (std::uint64_t done = 0; done < length; done += source.back().length) {
    source.push_back(At(from + done, length - done));
  }
  for (Stretch& stretch : source) {
    const std::uint64_t copied = stretch.length;
    Replace(to, std::move(stretch));
    to += copied;
  }
  return {};
} catch (const std::bad_alloc&) {
  return Error(std::errc::not_enough_memory);
}

// Makes a stretch that covers offset end there and another one begin.
void ScratchDevice::Split(std::uint64_t offset) {
  const auto next = stretches_.lower_bound(offset);
  if (next == stretches_.begin()) return;
  auto& [start, stretch] = *std::prev(next);
  const std::uint64_t head = offset - start;
  if (stretch.length <= head) return;
  stretches_.emplace_hint(next, offset, Slice(stretch, head, stretch.length));
  stretch.length = head;
}

void ScratchDevice::Replace(std::uint64_t offset, Stretch stretch) {
  const std::uint64_t end = offset + stretch.length;
  Split(offset);
  Split(end);
  const auto next = stretches_.erase(stretches_.lower_bound(offset), stretches_.lower_bound(end));
  if (!stretch.memory && stretch.start == offset) return;  // back where it came from
  if (next != stretches_.begin()) {
    auto& [start, before] = *std::prev(next);
    if (start + before.length == offset && before.memory == stretch.memory &&
        before.start + before.length == stretch.start) {
      before.length += stretch.length;
      return;
    }
  }
  stretches_.emplace_hint(next, offset, std::move(stretch));
}

}  // namespace vornalux
