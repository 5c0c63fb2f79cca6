// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/mounted/mounted_platform.h"
#include "host/simulated/call_log.h"
#include "host/simulated/fat_driver.h"
#include "host/simulated/fault_plan.h"
#include "host/simulated/memory_registry.h"
#include "host/simulated/scripted_desktop.h"
#include "host/simulated/scripted_shell.h"
#include "host/simulated/simulated_volume.h"
#include "platform/platform.h"

namespace vornalux {

// What a drive is like for the time being. Files and handles on one that is gone answer nothing.
enum class DriveState { Well, Gone, NotOpening, NoBitmap };

// A whole machine for tests: mounted volumes, usually simulated ones, on which things go wrong by
// plan, a user who follows a script, and a log of every call.
class SimulatedPlatform final : public MountedPlatform {
 public:
  explicit SimulatedPlatform(MachineSettings settings = {});

  // As Mount(), for a simulated volume, whose locked items then refuse to open.
  void AddVolume(char letter, SimulatedVolume& volume);

  // For handing around; valid as long as this object.
  Platform All() { return With(desktop_, shell_, registry_); }

  // Another drive, with nothing in it unless a volume is added under the letter as well.
  void AddDrive(char letter, std::uint32_t type) { drive_types_[letter] = type; }

  // Another program of ours works on the volume with this root.
  void SetTakenByAnother(std::string root) { taken_by_another_ = std::move(root); }
  bool TakeVolume(const std::string& root) override { return root != taken_by_another_; }
  void SetDriveState(char letter, DriveState state) { drive_states_[letter] = state; }
  // FAT volumes are moved by Windows' driver and not by our own.
  void UseFatDriver() { fat_driver_.emplace(*this); }
  // A disk check tells something so often, each time with a chance to cancel it.
  void SetCheckLines(int lines) { check_lines_ = lines; }

  FaultPlan& Faults() { return faults_; }
  ScriptedDesktop& User() { return desktop_; }
  ScriptedShell& Shell() { return shell_; }
  MemoryRegistry& Keys() { return registry_; }
  CallLog& Log() { return log_; }
  int PowerOffs() const { return power_offs_; }

  std::string LogicalDriveStrings() override;
  std::uint32_t DriveType(const std::string& root) override;
  Handle OpenVolume(const std::string& device_path) override;
  void CloseVolume(Handle volume) override;
  ErrorCode FreeSpaceFigures(const std::string& root, FreeSpace& out) override;
  ErrorCode VolumeNames(const std::string& root, VolumeName& out) override;
  ErrorCode VolumeBitmap(Handle volume, std::int64_t starting_lcn, std::size_t max_bytes,
                         BitmapChunk& out) override;
  ErrorCode NtfsData(Handle volume, NtfsVolumeData& out) override;
  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                         std::int64_t starting_lcn, std::uint32_t cluster_count,
                         const MoveCheckpoint& checkpoint = {}) override;

  OpenedFile OpenPath(const std::string& path, FileAccess access, FileFlags flags) override;
  void CloseFile(Handle file) override;
  ErrorCode RetrievalPointers(Handle file, std::int64_t starting_vcn, std::size_t max_extents,
                              ExtentChunk& out) override;
  ErrorCode StreamNames(Handle file, std::vector<std::string>& out) override;
  std::unique_ptr<FolderSearch> FindFirst(const std::string& pattern,
                                          const std::function<bool()>& go_on = {}) override;
  ErrorCode ReadBytes(const std::string& path, std::string& out) override;

  Handle OpenDevice(const std::string& device_path) override;

  std::uint32_t SetPriorityClass(std::uint32_t priority_class) override;
  void Check(const std::string& root, const std::string& file_system,
             const DiskCheckOptions& options, const Callback& callback) override;
  void ExitWindows(std::uint32_t flags, std::uint32_t reason) override;

 protected:
  ErrorCode MayOpen(MountedVolume& volume, ItemId item) override;

 private:
  // path: of anything on the drive.
  bool Is(DriveState state, std::string_view path) const;
  // What the drive itself fails the call with.
  ErrorCode Missing(std::string_view path) const {
    return Is(DriveState::Gone, path) ? error::kNotReady : error::kSuccess;
  }

  CallLog log_;
  std::optional<FatDriver> fat_driver_;
  FaultPlan faults_;
  ScriptedDesktop desktop_;
  ScriptedShell shell_;
  MemoryRegistry registry_;
  std::unordered_map<const MountedVolume*, const SimulatedVolume*> simulated_;
  std::map<char, std::uint32_t> drive_types_;
  std::string taken_by_another_ = "none";
  std::map<char, DriveState> drive_states_;
  int check_lines_ = 1;
  int power_offs_ = 0;
};

}  // namespace vornalux
