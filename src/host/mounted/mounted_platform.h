// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/mounted/folder_tree.h"
#include "host/mounted/mounted_volume.h"
#include "host/mounted/no_shell.h"
#include "host/mounted/read_failures.h"
#include "platform/platform.h"

namespace vornalux {

struct MachineSettings {
  std::string windows_folder = {};       // "C:\Windows", empty when no volume holds Windows
  std::uint64_t seed = 0;                // of Random()
  std::function<void()> power_off = {};  // nothing happens without it
};

// Answers the program's questions from mounted volumes, each under a drive letter, with Windows'
// meaning of paths, handles and error codes. The desktop is somebody else's. Not thread-safe.
class MountedPlatform : public Volumes,
                        public Files,
                        public Machine,
                        public RawDevices,
                        public System,
                        public CheckLibrary {
 public:
  explicit MountedPlatform(MachineSettings settings = {});
  ~MountedPlatform() override;
  MountedPlatform(const MountedPlatform&) = delete;
  MountedPlatform& operator=(const MountedPlatform&) = delete;

  // letter: 'A' to 'Z' or lower case, not in use yet. The volume is not owned, must outlive the
  // platform, and is not closed by it.
  void Mount(char letter, MountedVolume& volume);
  // Somebody else has changed files of a mounted volume: what is known of its folders is forgotten.
  void Relist(char letter);

  // All that the program asks for, with the user's side of somebody else, and with a shell and a
  // registry where there are such.
  Platform With(Desktop& desktop) { return With(desktop, no_shell_, no_shell_); }
  Platform With(Desktop& desktop, ShellObjects& shell, Registry& registry) {
    return {*this, *this, *this, *this, desktop, shell, registry, *this, *this};
  }

  // What the volumes' disks and structures kept from being read, so far.
  const std::vector<ReadFailure>& Unreadable() const { return failures_.List(); }
  void ForgetUnreadable() { failures_.Forget(); }

  // The path with each name spelled as its folder lists it. kFileNotFound or kPathNotFound where
  // there is none, and for what no folder lists.
  ErrorCode SpellAsListed(std::string& path);

  // Open volume, file and device handles together.
  std::size_t OpenHandles() const { return volumes_.size() + files_.size() + devices_.size(); }

  std::string LogicalDriveStrings() override;
  std::uint32_t DriveType(const std::string& root) override;
  Handle OpenVolume(const std::string& device_path) override;
  void CloseVolume(Handle volume) override;
  ErrorCode FreeSpaceFigures(const std::string& root, FreeSpace& out) override;
  ErrorCode VolumeNames(const std::string& root, VolumeName& out) override;
  ErrorCode VolumeBitmap(Handle volume, std::int64_t starting_lcn, std::size_t max_bytes,
                         BitmapChunk& out) override;
  bool BitmapChanges(Handle volume, std::uint64_t& mark, std::vector<std::int64_t>& lcns) override;
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
  // kNotEnoughMemory for files above 64 MiB.
  ErrorCode ReadBytes(const std::string& path, std::string& out) override;

  // Devices are read only: no file system of ours would know of what was written below it.
  Handle OpenDevice(const std::string& device_path) override;
  void CloseDevice(Handle device) override { devices_.erase(device); }
  std::uint32_t SetPointer(Handle device, std::int32_t low, std::int32_t high) override;
  bool ReadDevice(Handle device, std::span<std::uint8_t> out) override;
  bool WriteDevice(Handle, std::span<const std::uint8_t>) override { return false; }
  void FlushDevice(Handle) override {}
  void LockRange(Handle, std::uint64_t, std::uint32_t) override {}
  void UnlockRange(Handle, std::uint64_t, std::uint32_t) override {}
  // There is no driver in between that would have a version.
  ErrorCode ReadDriverVersion(Handle device, DriverVersion& version) override;
  ErrorCode SendDriveCommand(Handle device, const DriveRegisters& registers) override;
  ErrorCode ReceiveDriveData(Handle device, const DriveRegisters& registers,
                             DriveSector& data) override;

  std::string WindowsFolder() override { return settings_.windows_folder; }
  std::string ErrorText(ErrorCode code) override;
  // Remembers the class only; a host that has a scheduler overrides it.
  std::uint32_t SetPriorityClass(std::uint32_t priority_class) override;
  std::uint32_t PriorityClass() override { return priority_class_; }
  double Random() override;

  // There is nobody who could lack a right, and no version to ask for.
  std::int32_t AdministratorTest() override { return 1; }
  bool Version(SystemVersion& version) override;
  bool IsWow64Process() override { return false; }
  bool EnablePrivilege(const std::string&) override { return true; }
  void InitCommonControls(std::uint32_t) override {}
  void ExitWindows(std::uint32_t flags, std::uint32_t reason) override;

  // The check is whether the volume is marked dirty.
  bool Load() override { return true; }
  void Free() override {}
  bool CanOpenForWriting(const std::string&) override { return false; }
  void Check(const std::string& root, const std::string& file_system,
             const DiskCheckOptions& options, const Callback& callback) override;

 protected:
  // Last word on opening what a path led to: anything but kSuccess refuses it.
  virtual ErrorCode MayOpen(MountedVolume& volume, ItemId item);
  // Null for no volume's handle.
  MountedVolume* VolumeOf(Handle volume) {
    const Drive* const drive = DriveOf(volume);
    return drive == nullptr ? nullptr : drive->volume;
  }

 private:
  struct Drive {
    explicit Drive(MountedVolume& mounted) : volume(&mounted), tree(mounted) {}
    MountedVolume* volume;
    FolderTree tree;
    std::uint64_t moves = 0;  // moves that have come to an end
    // Why streams that could not be copied stay where they are: trying again and again wears out
    // both the user and the disk.
    std::map<std::pair<ItemId, std::string>, ErrorCode> fixed;
  };
  struct OpenDrive {
    MountedVolume* volume = nullptr;
    std::uint64_t position = 0;
  };
  // What a path led to.
  struct Found {
    Drive* drive = nullptr;
    StreamRef stream;
    bool folder = false;
  };
  struct OpenFile {
    Found found;
    std::string path;
    // Read once for all chunks of a file of many extents; stale when moves happened since.
    std::vector<Extent> extents;
    bool extents_known = false;
    std::uint64_t extents_moves = 0;
  };

  Drive* FindDrive(char letter);
  Drive* DriveOf(Handle volume);
  // The disk below an open device. Null, with the reason, when there is none.
  SmartDrive* DiskOf(Handle device, ErrorCode& why);
  OpenFile* FileOf(Handle file);
  Handle NextHandle();
  // What OpenPath() would open, without a handle to it.
  ErrorCode Locate(std::string_view path, FileFlags flags, Found& out);
  ErrorCode Resolve(std::string_view path, Found& out);
  ErrorCode ResolveStream(const FolderItem& item, std::string_view suffix, Found& out);
  ErrorCode LoadExtents(OpenFile& file);
  ErrorCode FindListing(Drive& drive, std::string_view folder, const std::function<bool()>& go_on,
                        std::shared_ptr<const FolderListing>& out);
  ErrorCode ReadAll(const Found& found, std::string& out);
  // Remembers the path when its volume could not be read; gives the code back.
  ErrorCode Noted(std::string_view path, Drive* drive, ErrorCode code);

  MachineSettings settings_;
  NoShell no_shell_;
  ReadFailures failures_;
  std::uint32_t priority_class_ = priority::kNormal;
  std::mt19937_64 random_;
  std::map<char, Drive> drives_;
  std::unordered_map<Handle, Drive*> volumes_;
  std::unordered_map<Handle, OpenFile> files_;
  OpenFile spare_file_;  // its memory serves the next: a walk opens one file after the other
  std::unordered_map<Handle, OpenDrive> devices_;
  Handle last_handle_ = 0;
};

}  // namespace vornalux
