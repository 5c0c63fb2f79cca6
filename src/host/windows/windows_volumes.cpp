// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_volumes.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "host/windows/file_system_answers.h"
#include "host/windows/file_system_control.h"
#include "host/windows/large_move.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr DWORD kTextSize = 255;
constexpr std::size_t kExtentsPerAnswer = 1024;

static_assert(sizeof(STARTING_LCN_INPUT_BUFFER) == 8);

// The same for both word sizes but for the handle, which has eight bytes' room in either.
static_assert(sizeof(MOVE_FILE_DATA) == 32);
static_assert(offsetof(MOVE_FILE_DATA, FileHandle) == 0);
static_assert(offsetof(MOVE_FILE_DATA, StartingVcn) == 8);
static_assert(offsetof(MOVE_FILE_DATA, StartingLcn) == 16);
static_assert(offsetof(MOVE_FILE_DATA, ClusterCount) == 24);

template <typename Record>
std::span<const std::uint8_t> BytesOf(const Record& record) {
  return {reinterpret_cast<const std::uint8_t*>(&record), sizeof record};
}

ErrorCode Request(Handle volume, Handle file, const FilePart& part) {
  MOVE_FILE_DATA move;
  std::memset(&move, 0, sizeof move);  // gaps included: they are read as part of the handle
  move.FileHandle = Native(file);
  move.StartingVcn.QuadPart = part.vcn;
  move.StartingLcn.QuadPart = part.lcn;
  move.ClusterCount = static_cast<DWORD>(part.count);
  std::size_t answered = 0;
  return FileSystemControl(volume, FSCTL_MOVE_FILE, BytesOf(move), {}, answered);
}

// What of the file lies in [vcn, end), up to the file's end. Empty when that is not known for
// certain, or when there are holes, over which a target does not advance.
std::vector<FilePart> PartsWithoutHoles(Handle file, std::int64_t vcn, std::int64_t end) {
  constexpr std::int64_t kFarthest = std::numeric_limits<std::int64_t>::max() / 2;
  std::vector<FilePart> parts;
  WindowsFiles files;
  ExtentChunk chunk;
  for (ErrorCode result = error::kMoreData; result == error::kMoreData && vcn < end;) {
    result = files.RetrievalPointers(file, vcn, kExtentsPerAnswer, chunk);
    const bool answered = result == error::kSuccess || result == error::kMoreData;
    if (!answered || chunk.starting_vcn < 0 || chunk.starting_vcn > vcn) return {};
    const std::int64_t before = vcn;
    std::int64_t start = chunk.starting_vcn;
    for (const Extent& extent : chunk.extents) {
      if (extent.NextVcn <= start || extent.NextVcn > kFarthest || extent.Lcn > kFarthest)
        return {};
      const std::int64_t to = std::min(extent.NextVcn, end);
      if (vcn < to) {
        if (extent.Lcn < 0) return {};
        parts.push_back({vcn, extent.Lcn + (vcn - start), to - vcn});
        vcn = to;
      }
      start = extent.NextVcn;
    }
    if (vcn == before) return {};
  }
  return parts;
}

}  // namespace

std::string WindowsVolumes::LogicalDriveStrings() {
  char roots[kTextSize] = {};
  const DWORD length = GetLogicalDriveStringsA(kTextSize, roots);
  return length < kTextSize ? std::string(roots, length) : std::string();
}

std::uint32_t WindowsVolumes::DriveType(const std::string& root) {
  return GetDriveTypeA(ToAnsi(root).c_str());
}

Handle WindowsVolumes::OpenVolume(const std::string& device_path) {
  return Portable(CreateFileA(ToAnsi(device_path).c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr));
}

void WindowsVolumes::CloseVolume(Handle volume) { CloseHandle(Native(volume)); }

ErrorCode WindowsVolumes::FreeSpaceFigures(const std::string& root, FreeSpace& out) {
  DWORD sectors = 0, bytes = 0, free = 0, total = 0;
  if (!GetDiskFreeSpaceA(ToAnsi(root).c_str(), &sectors, &bytes, &free, &total)) {
    return LastError();
  }
  out = {.sectors_per_cluster = sectors,
         .bytes_per_sector = bytes,
         .free_clusters = free,
         .total_clusters = total};
  return error::kSuccess;
}

ErrorCode WindowsVolumes::VolumeNames(const std::string& root, VolumeName& out) {
  char label[kTextSize] = {};
  char file_system[kTextSize] = {};
  DWORD serial = 0;
  if (!GetVolumeInformationA(ToAnsi(root).c_str(), label, kTextSize, &serial, nullptr, nullptr,
                             file_system, kTextSize)) {
    return LastError();
  }
  out = {.label = FromAnsi(label), .file_system = FromAnsi(file_system), .serial = serial};
  return error::kSuccess;
}

ErrorCode WindowsVolumes::VolumeBitmap(Handle volume, std::int64_t starting_lcn,
                                       std::size_t max_bytes, BitmapChunk& out) {
  STARTING_LCN_INPUT_BUFFER start{};
  start.StartingLcn.QuadPart = starting_lcn;
  // Answered into the caller's own memory: the map of a large volume is not held twice.
  out.bits.resize(BitmapAnswerSize(max_bytes));
  std::size_t answered = 0;
  ErrorCode result =
      FileSystemControl(volume, FSCTL_GET_VOLUME_BITMAP, BytesOf(start), out.bits, answered);
  out.bits.resize(answered);
  if (result == error::kSuccess || result == error::kMoreData) {
    const ErrorCode taken = TakeBitmapAnswer(result == error::kMoreData, out);
    if (taken != error::kSuccess) result = taken;
  }
  if (result != error::kSuccess && result != error::kMoreData) out.bits.clear();
  return result;
}

ErrorCode WindowsVolumes::NtfsData(Handle volume, NtfsVolumeData& out) {
  std::uint8_t answer[sizeof(NTFS_VOLUME_DATA_BUFFER)] = {};
  std::size_t answered = 0;
  const ErrorCode result =
      FileSystemControl(volume, FSCTL_GET_NTFS_VOLUME_DATA, {}, answer, answered);
  if (result != error::kSuccess) return result;
  return TakeNtfsAnswer(std::span<const std::uint8_t>(answer).first(answered), out);
}

ErrorCode WindowsVolumes::MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                                       std::int64_t starting_lcn, std::uint32_t cluster_count,
                                       const MoveCheckpoint& checkpoint) {
  const auto request = [=](const FilePart& part) { return Request(volume, file, part); };
  if (checkpoint.reached && checkpoint.every > 0 && cluster_count > checkpoint.every) {
    const std::vector<FilePart> parts =
        PartsWithoutHoles(file, starting_vcn, starting_vcn + cluster_count);
    if (!parts.empty() && parts.back().vcn + parts.back().count - starting_vcn > checkpoint.every) {
      return MoveInRequests(parts, starting_lcn, checkpoint, request);
    }
  }
  return request({starting_vcn, starting_lcn, cluster_count});
}

}  // namespace vornalux
