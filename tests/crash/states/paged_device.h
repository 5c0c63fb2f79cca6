// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "check/byte_source.h"
#include "support/devices.h"

namespace vornalux::test {

// Pages of a device that differ from what it was made of, with a hash of each.
using PageChanges = std::vector<std::pair<std::uint32_t, std::uint64_t>>;
using PageSet = std::vector<bool>;

std::uint64_t Mix(std::uint64_t a, std::uint64_t b);
std::uint64_t HashBytes(std::span<const std::uint8_t> bytes);

// Bytes in memory over bytes that many share: a copy costs what was written, not what there is.
class PagedDevice final : public BlockDevice {
 public:
  static constexpr std::size_t kPage = 1024;

  explicit PagedDevice(std::shared_ptr<const Bytes> base)
      : base_(std::move(base)), slots_((base_->size() + kPage - 1) / kPage) {}

  std::uint64_t Size() const override { return base_->size(); }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  std::error_code Flush() override { return {}; }

  PageChanges Changes() const;
  std::size_t Pages() const { return slots_.size(); }
  Bytes Content() const;

 private:
  std::span<const std::uint8_t> Below(std::uint32_t page) const;
  std::span<std::uint8_t> Above(std::uint32_t page) {
    return std::span(pages_).subspan((slots_[page] - 1) * kPage, kPage);
  }

  std::shared_ptr<const Bytes> base_;
  std::vector<std::uint32_t> slots_;  // of each page: where it lies in pages_, from 1 on; 0: below
  std::vector<std::uint32_t> written_;
  Bytes pages_;
  static constexpr std::uint64_t kUnknown = 0, kSame = 1;
  mutable std::vector<std::uint64_t> hashes_;  // of pages_, as far as somebody has asked
};

// Notes which pages somebody reads.
class ReadTrace final : public PassingDevice, public ByteSource {
 public:
  explicit ReadTrace(PagedDevice& device)
      : PassingDevice(device), device_(device), pages(device.Pages()) {}

  std::uint64_t Size() const override { return device_.Size(); }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override {
    for (std::uint64_t at = offset / PagedDevice::kPage;
         at * PagedDevice::kPage < offset + out.size() && at < pages.size(); ++at) {
      pages[at] = true;
    }
    return device_.Read(offset, out);
  }
  // The judges', who change nothing.
  bool Read(std::uint64_t offset, std::span<std::uint8_t> out) const override {
    return !const_cast<ReadTrace*>(this)->Read(offset, out);
  }

 private:
  PagedDevice& device_;

 public:
  PageSet pages;
};

// What somebody answered who reads a device and nothing else: the same again for a device on which
// all that was read is the same. salt: what else the answer depends on.
template <typename Answer>
class ReadMemo {
 public:
  const Answer* Find(const PageChanges& changes, std::uint64_t salt = 0) const {
    for (const Group& group : groups_) {
      const auto found = group.answers.find(Digest(changes, group.pages, salt));
      if (found != group.answers.end()) return &found->second;
    }
    return nullptr;
  }
  const Answer& Keep(const PageSet& pages, const PageChanges& changes, std::uint64_t salt,
                     Answer answer) {
    auto group = groups_.begin();
    while (group != groups_.end() && group->pages != pages) ++group;
    if (group == groups_.end()) group = groups_.insert(group, Group{pages, {}});
    return group->answers.insert_or_assign(Digest(changes, pages, salt), std::move(answer))
        .first->second;
  }

 private:
  struct Group {
    PageSet pages;
    std::unordered_map<std::uint64_t, Answer> answers;
  };
  static std::uint64_t Digest(const PageChanges& changes, const PageSet& pages,
                              std::uint64_t salt) {
    for (const auto& [page, hash] : changes) {
      if (pages[page]) salt += Mix(page + 1, hash);
    }
    return salt;
  }
  std::vector<Group> groups_;
};

}  // namespace vornalux::test
