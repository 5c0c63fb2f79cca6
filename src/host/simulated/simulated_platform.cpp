// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/simulated_platform.h"

#include <limits>
#include <utility>

#include "text/windows_path.h"

namespace vornalux {

namespace {

using Effect = FaultPlan::Effect;
using Fault = FaultPlan::Fault;

// The error of the first fault that fails the call, after running all actions on the way; the one
// that it has anyhow goes first.
ErrorCode RunFaults(const std::vector<Fault>& faults, ErrorCode anyhow = error::kSuccess) {
  if (anyhow != error::kSuccess) return anyhow;
  for (const Fault& fault : faults) {
    if (fault.effect == Effect::Action) fault.action();
    if (fault.effect == Effect::Fail) return fault.error;
  }
  return error::kSuccess;
}

void Lie(BitmapLie lie, BitmapChunk& out) {
  switch (lie) {
    case BitmapLie::NegativeSize:
      out.bitmap_size = -out.bitmap_size;
      break;
    case BitmapLie::HugeSize:
      out.bitmap_size = std::numeric_limits<std::int64_t>::max();
      break;
    case BitmapLie::ShortBits:
      out.bits.resize(out.bits.size() / 2);
      break;
    case BitmapLie::NoBits:
      out.bits.clear();
      break;
    case BitmapLie::WrongStart:
      out.starting_lcn += 8;
      break;
  }
}

std::string_view FolderOf(std::string_view pattern) {
  pattern = BarePath(pattern);
  if (pattern.ends_with('*')) pattern.remove_suffix(1);
  if (pattern.size() > 3 && pattern.ends_with('\\')) pattern.remove_suffix(1);
  return pattern;
}

}  // namespace

SimulatedPlatform::SimulatedPlatform(MachineSettings settings)
    : MountedPlatform(std::move(settings)), desktop_(&log_) {}

void SimulatedPlatform::AddVolume(char letter, SimulatedVolume& volume) {
  Mount(letter, volume);
  drive_types_.try_emplace(letter, drive_type::kFixed);
  simulated_.emplace(&volume, &volume);
}

ErrorCode SimulatedPlatform::MayOpen(MountedVolume& volume, ItemId item) {
  const auto simulated = simulated_.find(&volume);
  return simulated != simulated_.end() && simulated->second->Locked(item) ? error::kSharingViolation
                                                                          : error::kSuccess;
}

bool SimulatedPlatform::Is(DriveState state, std::string_view path) const {
  const std::string_view bare = BarePath(path);
  const auto drive = drive_states_.find(bare.empty() ? '\0' : DriveLetter(bare[0]));
  return drive != drive_states_.end() && drive->second == state;
}

std::string SimulatedPlatform::LogicalDriveStrings() {
  std::string roots;
  for (const auto& [letter, type] : drive_types_) {
    if (!Is(DriveState::Gone, {&letter, 1})) roots += std::string{letter, ':', '\\', '\0'};
  }
  return roots;
}

std::uint32_t SimulatedPlatform::DriveType(const std::string& root) {
  const auto drive = drive_types_.find(DriveOfRoot(root));
  return drive != drive_types_.end() && !Is(DriveState::Gone, root) ? drive->second
                                                                    : drive_type::kNoRoot;
}

Handle SimulatedPlatform::OpenVolume(const std::string& device_path) {
  const bool fails = !faults_.Hits(CallPoint::OpenVolume, device_path).empty() ||
                     Is(DriveState::Gone, device_path) || Is(DriveState::NotOpening, device_path);
  const Handle handle = fails ? kInvalidHandle : MountedPlatform::OpenVolume(device_path);
  if (handle != kInvalidHandle) log_.NameHandle(handle, device_path);
  log_.Add(CallKind::OpenVolume, device_path, handle, {},
           handle == kInvalidHandle ? error::kPathNotFound : error::kSuccess);
  return handle;
}

void SimulatedPlatform::CloseVolume(Handle volume) {
  MountedPlatform::CloseVolume(volume);
  log_.Add(CallKind::CloseVolume, log_.HandlePath(volume), volume, {}, error::kSuccess);
  log_.ForgetHandle(volume);
}

ErrorCode SimulatedPlatform::FreeSpaceFigures(const std::string& root, FreeSpace& out) {
  const std::vector<Fault> faults = faults_.Hits(CallPoint::FreeSpace, root);
  ErrorCode error = RunFaults(faults, Missing(root));
  if (error == error::kSuccess) error = MountedPlatform::FreeSpaceFigures(root, out);
  for (const Fault& fault : faults) {
    if (fault.effect == Effect::NoClusters) out.total_clusters = out.free_clusters = 0;
  }
  log_.Add(CallKind::FreeSpaceFigures, root, kInvalidHandle, {}, error);
  return error;
}

ErrorCode SimulatedPlatform::VolumeNames(const std::string& root, VolumeName& out) {
  const ErrorCode missing = Missing(root);
  const ErrorCode error = missing ? missing : MountedPlatform::VolumeNames(root, out);
  log_.Add(CallKind::VolumeNames, root, kInvalidHandle, {}, error);
  return error;
}

ErrorCode SimulatedPlatform::VolumeBitmap(Handle volume, std::int64_t starting_lcn,
                                          std::size_t max_bytes, BitmapChunk& out) {
  const std::string path = log_.HandlePath(volume);
  ErrorCode error = MountedPlatform::VolumeBitmap(volume, starting_lcn, max_bytes, out);
  const std::vector<Fault> faults = faults_.Hits(CallPoint::Bitmap, path);
  for (const Fault& fault : faults) {
    if (fault.effect == Effect::Lie) Lie(fault.lie, out);
  }
  const bool refused = Is(DriveState::NoBitmap, path);
  if (const ErrorCode planned = RunFaults(faults, refused ? error::kReadFault : Missing(path))) {
    error = planned;
  }
  log_.Add(CallKind::VolumeBitmap, path, volume,
           {starting_lcn, static_cast<std::int64_t>(max_bytes),
            static_cast<std::int64_t>(out.bits.size())},
           error);
  return error;
}

ErrorCode SimulatedPlatform::NtfsData(Handle volume, NtfsVolumeData& out) {
  const ErrorCode error = MountedPlatform::NtfsData(volume, out);
  log_.Add(CallKind::NtfsData, log_.HandlePath(volume), volume, {}, error);
  return error;
}

ErrorCode SimulatedPlatform::MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                                          std::int64_t starting_lcn, std::uint32_t cluster_count,
                                          const MoveCheckpoint& checkpoint) {
  const std::string path = log_.HandlePath(file);
  ErrorCode error = RunFaults(faults_.Hits(CallPoint::Move, path), Missing(path));
  if (error == error::kSuccess) {
    std::optional<ErrorCode> answer;
    if (fat_driver_) {
      answer = fat_driver_->Move(path, volume, file, starting_vcn, starting_lcn, cluster_count);
    }
    error = answer ? *answer
                   : MountedPlatform::MoveClusters(volume, file, starting_vcn, starting_lcn,
                                                   cluster_count, checkpoint);
  }
  log_.Add(CallKind::MoveClusters, path, file, {starting_vcn, starting_lcn, cluster_count}, error);
  return error;
}

OpenedFile SimulatedPlatform::OpenPath(const std::string& path, FileAccess access,
                                       FileFlags flags) {
  OpenedFile opened;
  opened.error = RunFaults(faults_.Hits(CallPoint::Open, path), Missing(path));
  if (opened.error == error::kSuccess) opened = MountedPlatform::OpenPath(path, access, flags);
  if (opened.handle != kInvalidHandle) log_.NameHandle(opened.handle, path);
  log_.Add(CallKind::OpenPath, path, opened.handle,
           {static_cast<std::int64_t>(access), static_cast<std::int64_t>(flags), 0}, opened.error);
  return opened;
}

void SimulatedPlatform::CloseFile(Handle file) {
  MountedPlatform::CloseFile(file);
  log_.Add(CallKind::CloseFile, log_.HandlePath(file), file, {}, error::kSuccess);
  log_.ForgetHandle(file);
}

ErrorCode SimulatedPlatform::RetrievalPointers(Handle file, std::int64_t starting_vcn,
                                               std::size_t max_extents, ExtentChunk& out) {
  const std::string path = log_.HandlePath(file);
  const std::vector<Fault> faults = faults_.Hits(CallPoint::Pointers, path);
  ErrorCode error = RunFaults(faults, Missing(path));
  if (error == error::kSuccess) {
    const auto answer = fat_driver_ ? fat_driver_->Pointers(path, starting_vcn, out) : std::nullopt;
    error =
        answer ? *answer : MountedPlatform::RetrievalPointers(file, starting_vcn, max_extents, out);
  }
  for (const Fault& fault : faults) {
    if (fault.effect != Effect::EmptyChunk && fault.effect != Effect::StuckChunk) continue;
    out = {.starting_vcn = starting_vcn, .extents = {}};
    if (fault.effect == Effect::StuckChunk) out.extents = {{.NextVcn = starting_vcn, .Lcn = 1}};
    error = error::kMoreData;
  }
  log_.Add(CallKind::RetrievalPointers, path, file,
           {starting_vcn, static_cast<std::int64_t>(max_extents),
            static_cast<std::int64_t>(out.extents.size())},
           error);
  return error;
}

ErrorCode SimulatedPlatform::StreamNames(Handle file, std::vector<std::string>& out) {
  const ErrorCode error = MountedPlatform::StreamNames(file, out);
  log_.Add(CallKind::StreamNames, log_.HandlePath(file), file,
           {static_cast<std::int64_t>(out.size()), 0, 0}, error);
  return error;
}

std::unique_ptr<FolderSearch> SimulatedPlatform::FindFirst(const std::string& pattern,
                                                           const std::function<bool()>& go_on) {
  const bool fails = !faults_.Hits(CallPoint::FindFirst, FolderOf(pattern)).empty() ||
                     Is(DriveState::Gone, pattern);
  std::unique_ptr<FolderSearch> search =
      fails ? nullptr : MountedPlatform::FindFirst(pattern, go_on);
  log_.Add(CallKind::FindFirst, FolderOf(pattern), kInvalidHandle, {},
           search ? error::kSuccess : error::kPathNotFound);
  return search;
}

ErrorCode SimulatedPlatform::ReadBytes(const std::string& path, std::string& out) {
  ErrorCode error = RunFaults(faults_.Hits(CallPoint::Open, path), Missing(path));
  if (error == error::kSuccess) error = MountedPlatform::ReadBytes(path, out);
  log_.Add(CallKind::ReadBytes, path, kInvalidHandle, {static_cast<std::int64_t>(out.size()), 0, 0},
           error);
  return error;
}

Handle SimulatedPlatform::OpenDevice(const std::string& device_path) {
  return Missing(device_path) ? kInvalidHandle : MountedPlatform::OpenDevice(device_path);
}

std::uint32_t SimulatedPlatform::SetPriorityClass(std::uint32_t priority_class) {
  log_.Add(CallKind::SetPriorityClass, {}, kInvalidHandle, {priority_class, 0, 0}, error::kSuccess);
  return MountedPlatform::SetPriorityClass(priority_class);
}

void SimulatedPlatform::Check(const std::string& root, const std::string& file_system,
                              const DiskCheckOptions& options, const Callback& callback) {
  log_.Add(CallKind::CheckDisk, root, kInvalidHandle, {}, error::kSuccess);
  for (int line = 1; line < check_lines_ && !Missing(root); ++line) {
    if (!callback({check_command::kOutput, 0, "Stage " + std::to_string(line)}) ||
        !callback({check_command::kProgress, 100 * line / check_lines_, {}})) {
      break;
    }
  }
  if (!Missing(root)) return MountedPlatform::Check(root, file_system, options, callback);
  // A drive that has gone on the way has failed its check.
  callback({check_command::kDone, 0, {}});
}

void SimulatedPlatform::ExitWindows(std::uint32_t flags, std::uint32_t reason) {
  ++power_offs_;
  log_.Add(CallKind::PowerOff, {}, kInvalidHandle, {}, error::kSuccess);
  MountedPlatform::ExitWindows(flags, reason);
}

}  // namespace vornalux
