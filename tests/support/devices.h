// SPDX-License-Identifier: GPL-2.0-or-later
// Devices for tests: in memory, recording, losing what was not flushed, failing on request.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/volume/image_volume.h"
#include "host/simulated/seeded_random.h"

namespace vornalux::test {

using Bytes = std::vector<std::uint8_t>;
using Random = SeededRandom;

// A number in [0, limit).
inline std::uint64_t Below(Random& random, std::uint64_t limit) { return random.Below(limit); }

class MemoryDevice final : public BlockDevice {
 public:
  explicit MemoryDevice(std::size_t size, bool growable = false)
      : bytes_(size), growable_(growable) {}
  explicit MemoryDevice(Bytes bytes, bool growable = false)
      : bytes_(std::move(bytes)), growable_(growable) {}

  Bytes& Content() { return bytes_; }

  std::uint64_t Size() const override { return bytes_.size(); }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override;
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override;
  std::error_code Flush() override { return {}; }

 private:
  Bytes bytes_;
  bool growable_;
};

// What was done to one of several devices that share a log. Create and Remove are a journal's:
// durable by themselves.
struct DeviceEvent {
  enum class Kind { Write, Flush, Create, Remove };
  int device = 0;
  Kind kind = Kind::Write;
  std::uint64_t offset = 0;
  Bytes data;
};
using DeviceLog = std::vector<DeviceEvent>;

// Passes everything on to a device that outlives it.
class PassingDevice : public BlockDevice {
 public:
  explicit PassingDevice(BlockDevice& base) : base_(base) {}

  std::uint64_t Size() const override { return base_.Size(); }
  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override {
    return base_.Read(offset, out);
  }
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override {
    return base_.Write(offset, data);
  }
  std::error_code Flush() override { return base_.Flush(); }

 private:
  BlockDevice& base_;
};

// Not a base itself: a copy of a device's base part would pass by what the device does.
class BorrowedDevice final : public PassingDevice {
  using PassingDevice::PassingDevice;
};

// Notes writes and flushes, before they happen, where there is a log.
class RecordingDevice final : public PassingDevice {
 public:
  RecordingDevice(BlockDevice& base, DeviceLog* log, int device)
      : PassingDevice(base), log_(log), device_(device) {}
  RecordingDevice(BlockDevice& base, DeviceLog& log, int device)
      : RecordingDevice(base, &log, device) {}

  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override {
    if (log_)
      log_->push_back({device_, DeviceEvent::Kind::Write, offset, {data.begin(), data.end()}});
    return PassingDevice::Write(offset, data);
  }
  std::error_code Flush() override {
    if (log_) log_->push_back({device_, DeviceEvent::Kind::Flush, 0, {}});
    return PassingDevice::Flush();
  }

 private:
  DeviceLog* log_;
  int device_;
};

// Knows at any time what a power cut could leave: all that was flushed, and of what was written
// since any choice of sectors. Fed with the events of a log.
class PowerCutDevice {
 public:
  explicit PowerCutDevice(Bytes content, bool growable = false)
      : durable_(content, growable), current_(std::move(content), growable) {}

  void Apply(const DeviceEvent& event);

  // Everything written so far, as if the cut came between two writes of an ordered device.
  const Bytes& InOrder() { return current_.Content(); }
  // What was flushed and a random choice of the sectors written since.
  Bytes Reordered(Random& random) const;

 private:
  MemoryDevice durable_;
  MemoryDevice current_;
  std::vector<DeviceEvent> pending_;
};

// Fails the nth call (from 0 on) of those that count, once or from then on.
class FailingDevice final : public PassingDevice {
 public:
  enum Calls : unsigned { kReads = 1, kWrites = 2, kFlushes = 4, kAll = 7 };

  FailingDevice(BlockDevice& base, unsigned calls) : PassingDevice(base), calls_(calls) {}

  void FailAt(std::int64_t nth, bool for_ever) {
    next_ = 0;
    fail_at_ = nth;
    for_ever_ = for_ever;
    has_failed_ = false;
  }
  // Since the last FailAt().
  bool HasFailed() const { return has_failed_; }

  std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override {
    return Fails(kReads) ? Trouble() : PassingDevice::Read(offset, out);
  }
  std::error_code Write(std::uint64_t offset, std::span<const std::uint8_t> data) override {
    return Fails(kWrites) ? Trouble() : PassingDevice::Write(offset, data);
  }
  std::error_code Flush() override { return Fails(kFlushes) ? Trouble() : PassingDevice::Flush(); }

 private:
  bool Fails(unsigned call);
  static std::error_code Trouble() { return std::make_error_code(std::errc::io_error); }

  unsigned calls_;
  std::int64_t next_ = 0;
  std::int64_t fail_at_ = -1;
  bool for_ever_ = false;
  bool has_failed_ = false;
};

// The place of a journal that lives in memory, and outlives the volume that uses it.
struct MemoryJournal {
  bool exists = false;
  MemoryDevice store{0, true};
  DeviceLog* log = nullptr;        // notes under device 1 what is done, when set
  BlockDevice* through = nullptr;  // stands before the store, when set
  bool refuse_open = false;
};

class MemoryJournalHome final : public JournalHome {
 public:
  explicit MemoryJournalHome(MemoryJournal& journal) : journal_(journal) {}
  std::error_code Open(std::shared_ptr<BlockDevice>& store) override;
  std::error_code Remove() override;

 private:
  MemoryJournal& journal_;
};

}  // namespace vornalux::test
