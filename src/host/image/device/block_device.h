// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>

namespace vornalux {

// Bytes that can be read, written and made durable. The seam on which everything below a file
// system is stacked: file, window into a file, journaled transaction, and the tests' memory,
// recording and failing devices. Offsets and sizes are bytes. Never throws.
class BlockDevice {
 public:
  virtual ~BlockDevice() = default;

  virtual std::uint64_t Size() const = 0;

  // All of out or an error; reading past the end is an error.
  virtual std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) = 0;

  // All of data or an error. Only a device that says so (a journal file) grows by it.
  virtual std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) = 0;

  // Returns when everything written before is durable.
  virtual std::error_code Flush() = 0;

  // Copies length bytes from one offset to another without reading them. For devices that live in
  // memory, where nothing is durable; any other says operation_not_supported, whatever the numbers.
  virtual std::error_code Copy([[maybe_unused]] std::uint64_t from,
                               [[maybe_unused]] std::uint64_t to,
                               [[maybe_unused]] std::uint64_t length) {
    return std::make_error_code(std::errc::operation_not_supported);
  }

  // Nobody needs these bytes any more: whatever keeps them may forget them, and they read as
  // anything from then on. operation_not_supported where nothing can be given back.
  virtual std::error_code GiveBack([[maybe_unused]] std::uint64_t offset,
                                   [[maybe_unused]] std::uint64_t length) {
    return std::make_error_code(std::errc::operation_not_supported);
  }
};

}  // namespace vornalux
