// SPDX-License-Identifier: GPL-2.0-or-later
// The system's calls for drives, volumes and files, answered in the layouts that the system uses.
// They are packed here by hand, so that the program's own idea of them is put to the test. What is
// not about an imaginary drive goes to the system.
#include "host/windows/system_headers.h"

// After the header that they need.
#include <winioctl.h>
#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "host/windows/windows_text.h"
#include "play/import_patch.h"
#include "play/session.h"

namespace vornalux::play {
namespace {

constexpr ErrorCode kInsufficientBuffer = 122;

enum class Kind { Volume, Device, File };

struct Opened {
  Kind kind;
  Handle handle;
  std::string path;
  std::string content;  // of a file, once it is read
  std::size_t position = 0;
};

std::map<HANDLE, Opened> opened_handles;
std::map<HANDLE, std::unique_ptr<FolderSearch>> searches;
std::uintptr_t last_handle = 0x40000000;  // far from what the system gives out

SimulatedPlatform& Drives() { return MachineOfTheProgram().Drives(); }

HANDLE NewHandle() { return reinterpret_cast<HANDLE>(last_handle += 4); }

Opened* Find(HANDLE handle) {
  const auto found = opened_handles.find(handle);
  return found == opened_handles.end() ? nullptr : &found->second;
}

template <typename Result>
Result Fails(ErrorCode error, Result result) {
  SetLastError(error);
  return result;
}

BOOL Succeeds(ErrorCode error) {
  return error == error::kSuccess ? TRUE : Fails(error, BOOL{FALSE});
}

NTSTATUS StatusOf(ErrorCode error) {
  switch (error) {
    case error::kSuccess:
      return 0;
    case error::kMoreData:
      return static_cast<NTSTATUS>(0x80000005);
    case error::kHandleEof:
      return static_cast<NTSTATUS>(0xC0000011);
    case error::kInvalidParameter:
      return static_cast<NTSTATUS>(0xC000000D);
    case error::kAccessDenied:
      return static_cast<NTSTATUS>(0xC0000022);
    case kInsufficientBuffer:
      return static_cast<NTSTATUS>(0xC0000023);
    default:
      return static_cast<NTSTATUS>(0xC0070000 | error);
  }
}

// An answer as it grows, cut where the caller's room ends.
class Answer {
 public:
  Answer(void* out, std::size_t room) : out_(static_cast<std::uint8_t*>(out)), room_(room) {}

  template <typename Number>
  void Put(Number number) {
    PutBytes(&number, sizeof number);
  }
  void PutBytes(const void* bytes, std::size_t size) {
    std::memcpy(out_ + size_, bytes, std::min(size, room_ - size_));
    size_ = std::min(size_ + size, room_);
  }
  std::size_t Room() const { return room_ - size_; }
  std::size_t Size() const { return size_; }

 private:
  std::uint8_t* out_;
  std::size_t room_;
  std::size_t size_ = 0;
};

template <typename Number>
Number At(const void* in, std::size_t offset) {
  Number number;
  std::memcpy(&number, static_cast<const std::uint8_t*>(in) + offset, sizeof number);
  return number;
}

ErrorCode AnswerBitmap(Handle volume, const void* in, Answer& answer) {
  if (answer.Room() <= 16) return kInsufficientBuffer;
  BitmapChunk chunk;
  const ErrorCode error =
      Drives().VolumeBitmap(volume, At<std::int64_t>(in, 0), answer.Room() - 16, chunk);
  if (error != error::kSuccess && error != error::kMoreData) return error;
  answer.Put(chunk.starting_lcn);
  answer.Put(chunk.bitmap_size);
  answer.PutBytes(chunk.bits.data(), chunk.bits.size());
  return error;
}

ErrorCode AnswerNtfsData(Handle volume, Answer& answer) {
  NtfsVolumeData data;
  if (const ErrorCode error = Drives().NtfsData(volume, data)) return error;
  const std::uint8_t before[80] = {};
  answer.PutBytes(before, sizeof before);
  answer.Put(data.mft_zone_start);
  answer.Put(data.mft_zone_end);
  return error::kSuccess;
}

ErrorCode AnswerPointers(Handle file, const void* in, Answer& answer) {
  if (answer.Room() < 32) return kInsufficientBuffer;
  ExtentChunk chunk;
  const ErrorCode error =
      Drives().RetrievalPointers(file, At<std::int64_t>(in, 0), (answer.Room() - 16) / 16, chunk);
  if (error != error::kSuccess && error != error::kMoreData) return error;
  answer.Put(static_cast<std::uint64_t>(chunk.extents.size()));
  answer.Put(chunk.starting_vcn);
  for (const Extent& extent : chunk.extents) {
    answer.Put(extent.NextVcn);
    answer.Put(extent.Lcn);
  }
  return error;
}

ErrorCode Move(Handle volume, const void* in, std::size_t size) {
  if (size != 32) return error::kInvalidParameter;
  const Opened* file = Find(At<HANDLE>(in, 0));
  if (file == nullptr) return error::kInvalidHandle;
  return Drives().MoveClusters(volume, file->handle, At<std::int64_t>(in, 8),
                               At<std::int64_t>(in, 16), At<std::uint32_t>(in, 24));
}

NTSTATUS NTAPI ControlFile(HANDLE handle, HANDLE event, PIO_APC_ROUTINE routine, void* context,
                           IO_STATUS_BLOCK* block, ULONG code, void* in, ULONG in_size, void* out,
                           ULONG out_size) {
  const Opened* open = Find(handle);
  if (open == nullptr) {
    return NtFsControlFile(handle, event, routine, context, block, code, in, in_size, out,
                           out_size);
  }
  Answer answer(out, out_size);
  ErrorCode error = error::kInvalidFunction;
  const bool volume = open->kind == Kind::Volume;
  if (code == FSCTL_GET_VOLUME_BITMAP && volume && in_size == 8) {
    error = AnswerBitmap(open->handle, in, answer);
  } else if (code == FSCTL_MOVE_FILE && volume) {
    error = Move(open->handle, in, in_size);
  } else if (code == FSCTL_GET_NTFS_VOLUME_DATA && volume) {
    error = AnswerNtfsData(open->handle, answer);
  } else if (code == FSCTL_GET_RETRIEVAL_POINTERS && open->kind == Kind::File && in_size == 8) {
    error = AnswerPointers(open->handle, in, answer);
  }
  block->Information = answer.Size();
  block->Status = StatusOf(error);
  return block->Status;
}

// Names of streams: entries that say where the next one begins, each on a multiple of eight.
NTSTATUS NTAPI QueryFile(HANDLE handle, IO_STATUS_BLOCK* block, void* out, ULONG size,
                         FILE_INFORMATION_CLASS what) {
  const Opened* open = Find(handle);
  if (open == nullptr) return NtQueryInformationFile(handle, block, out, size, what);
  if (what != FileStreamInformation) return StatusOf(error::kInvalidParameter);
  std::vector<std::string> names;
  if (const ErrorCode error = Drives().StreamNames(open->handle, names)) return StatusOf(error);
  Answer answer(out, size);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::wstring name = ToWide(names[i]);
    const std::size_t bytes = name.size() * sizeof(wchar_t);
    const std::size_t padded = (24 + bytes + 7) / 8 * 8;
    if (answer.Room() < padded) return StatusOf(error::kMoreData);
    const bool last = i + 1 == names.size();
    answer.Put(static_cast<std::uint32_t>(last ? 0 : padded));
    answer.Put(static_cast<std::uint32_t>(bytes));
    answer.Put(std::int64_t{0});
    answer.Put(std::int64_t{0});
    answer.PutBytes(name.data(), bytes);
    const std::uint8_t padding[8] = {};
    if (!last) answer.PutBytes(padding, padded - 24 - bytes);
  }
  block->Information = answer.Size();
  block->Status = 0;
  return 0;
}

// The disk's commands: 32 bytes of request, of which the last that counts is the command register,
// and 16 bytes before the sector that is the answer.
ErrorCode AnswerDrive(Handle device, DWORD code, const void* in, DWORD in_size, Answer& answer) {
  if (code == SMART_GET_VERSION) {
    DriverVersion version{};
    const ErrorCode error = Drives().ReadDriverVersion(device, version);
    answer.PutBytes(version.data(), sizeof version);
    return error;
  }
  if (in_size != 32 || answer.Room() != 528) return error::kInvalidParameter;
  const auto byte = [in](std::size_t offset) { return At<std::uint8_t>(in, offset); };
  const DriveRegisters registers = {.features = byte(4),
                                    .sector_count = byte(5),
                                    .sector_number = byte(6),
                                    .cylinder_low = byte(7),
                                    .cylinder_high = byte(8),
                                    .drive_head = byte(9),
                                    .command = byte(10)};
  const std::uint8_t header[16] = {};
  answer.PutBytes(header, sizeof header);
  if (code == SMART_SEND_DRIVE_COMMAND) return Drives().SendDriveCommand(device, registers);
  if (code != SMART_RCV_DRIVE_DATA) return error::kInvalidFunction;
  DriveSector sector{};
  const ErrorCode error = Drives().ReceiveDriveData(device, registers, sector);
  answer.PutBytes(sector.data(), sector.size());
  return error;
}

BOOL WINAPI ControlDevice(HANDLE handle, DWORD code, void* in, DWORD in_size, void* out,
                          DWORD out_size, DWORD* done, OVERLAPPED* overlapped) {
  const Opened* open = Find(handle);
  if (open == nullptr) {
    return DeviceIoControl(handle, code, in, in_size, out, out_size, done, overlapped);
  }
  Answer answer(out, out_size);
  if (code == IOCTL_STORAGE_QUERY_PROPERTY) {
    const bool solid =
        MachineOfTheProgram().solid_state.find(open->path.at(4)) != std::string::npos;
    for (const DWORD field : {12ul, 12ul, 0ul}) answer.Put(field);
    *done = static_cast<DWORD>(answer.Size());
    return solid && At<DWORD>(in, 0) == 7 ? TRUE : Succeeds(error::kInvalidFunction);
  }
  const ErrorCode error = AnswerDrive(open->handle, code, in, in_size, answer);
  *done = error == error::kSuccess ? static_cast<DWORD>(answer.Size()) : 0;
  return Succeeds(error);
}

HANDLE WINAPI OpenA(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                    DWORD disposition, DWORD flags, HANDLE model) {
  const std::string text = path;
  if (!text.starts_with("\\\\.\\")) {
    return CreateFileA(path, access, share, security, disposition, flags, model);
  }
  const Kind kind = (access & GENERIC_WRITE) != 0 ? Kind::Device : Kind::Volume;
  const Handle handle =
      kind == Kind::Device ? Drives().OpenDevice(text) : Drives().OpenVolume(text);
  if (handle == kInvalidHandle) return Fails(error::kNotReady, INVALID_HANDLE_VALUE);
  const HANDLE native = NewHandle();
  opened_handles[native] = {kind, handle, text, {}};
  return native;
}

HANDLE WINAPI OpenW(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                    DWORD disposition, DWORD flags, HANDLE model) {
  const std::string text = FromWide(path);
  // Nothing is written to files of imaginary drives.
  if (!text.starts_with("\\\\?\\") || (access & GENERIC_WRITE) != 0) {
    return CreateFileW(path, access, share, security, disposition, flags, model);
  }
  const FileAccess kind =
      access == GENERIC_READ ? FileAccess::GenericRead : FileAccess::ReadAttributes;
  const FileFlags way = (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0 ? FileFlags::BackupSemantics
                        : (flags & FILE_FLAG_NO_BUFFERING) != 0   ? FileFlags::NoBuffering
                                                                  : FileFlags::None;
  const OpenedFile file = Drives().OpenPath(text, kind, way);
  if (file.handle == kInvalidHandle) return Fails(file.error, INVALID_HANDLE_VALUE);
  const HANDLE native = NewHandle();
  opened_handles[native] = {Kind::File, file.handle, text, {}};
  return native;
}

BOOL WINAPI Close(HANDLE handle) {
  const Opened* open = Find(handle);
  if (open == nullptr) return CloseHandle(handle);
  if (open->kind == Kind::File) Drives().CloseFile(open->handle);
  if (open->kind == Kind::Volume) Drives().CloseVolume(open->handle);
  if (open->kind == Kind::Device) Drives().CloseDevice(open->handle);
  opened_handles.erase(handle);
  return TRUE;
}

BOOL WINAPI Read(HANDLE handle, void* out, DWORD size, DWORD* done, OVERLAPPED* overlapped) {
  Opened* open = Find(handle);
  if (open == nullptr) return ReadFile(handle, out, size, done, overlapped);
  *done = 0;
  auto* const bytes = static_cast<std::uint8_t*>(out);
  if (open->kind == Kind::Device) {
    if (!Drives().ReadDevice(open->handle, {bytes, size})) return Succeeds(error::kReadFault);
    *done = size;
    return TRUE;
  }
  if (open->position == 0) {
    if (const ErrorCode error = Drives().ReadBytes(open->path, open->content)) {
      return Succeeds(error);
    }
  }
  const std::size_t count = std::min<std::size_t>(size, open->content.size() - open->position);
  std::memcpy(bytes, open->content.data() + open->position, count);
  open->position += count;
  *done = static_cast<DWORD>(count);
  return TRUE;
}

DWORD WINAPI Seek(HANDLE handle, LONG low, LONG* high, DWORD method) {
  const Opened* open = Find(handle);
  if (open == nullptr) return SetFilePointer(handle, low, high, method);
  return Drives().SetPointer(open->handle, low, *high);
}

bool Next(FolderSearch& search, WIN32_FIND_DATAW* out) {
  FolderEntry entry;
  if (!search.Next(entry)) return false;
  *out = {};
  out->dwFileAttributes = entry.attributes;
  const std::wstring name = ToWide(entry.name);
  name.copy(out->cFileName, std::min<std::size_t>(name.size(), MAX_PATH - 1));
  return true;
}

HANDLE WINAPI FindFirst(const wchar_t* pattern, WIN32_FIND_DATAW* out) {
  std::unique_ptr<FolderSearch> search = Drives().FindFirst(FromWide(pattern));
  if (!search) return Fails(error::kPathNotFound, INVALID_HANDLE_VALUE);
  if (!Next(*search, out)) return Fails(error::kFileNotFound, INVALID_HANDLE_VALUE);
  const HANDLE native = NewHandle();
  searches[native] = std::move(search);
  return native;
}

BOOL WINAPI FindNext(HANDLE search, WIN32_FIND_DATAW* out) {
  return Next(*searches.at(search), out) ? TRUE : Fails(error::kNoMoreFiles, BOOL{FALSE});
}

BOOL WINAPI EndFind(HANDLE search) { return searches.erase(search) != 0 ? TRUE : FALSE; }

DWORD WINAPI DriveStrings(DWORD room, char* out) {
  const std::string roots = Drives().LogicalDriveStrings();
  if (roots.size() < room) std::memcpy(out, roots.c_str(), roots.size() + 1);
  return static_cast<DWORD>(roots.size());
}

UINT WINAPI DriveType(const char* root) { return Drives().DriveType(root); }

void PutText(const std::string& text, char* out, DWORD room) {
  if (out != nullptr)
    *std::copy_n(text.begin(), std::min<std::size_t>(text.size(), room - 1), out) = 0;
}

BOOL WINAPI VolumeInformation(const char* root, char* label, DWORD label_room, DWORD*, DWORD*,
                              DWORD*, char* file_system, DWORD file_system_room) {
  VolumeName names;
  if (const ErrorCode error = Drives().VolumeNames(root, names)) return Succeeds(error);
  PutText(ToAnsi(names.label), label, label_room);
  PutText(ToAnsi(names.file_system), file_system, file_system_room);
  return TRUE;
}

BOOL WINAPI DiskFreeSpace(const char* root, DWORD* sectors, DWORD* bytes, DWORD* free,
                          DWORD* total) {
  FreeSpace space;
  if (const ErrorCode error = Drives().FreeSpaceFigures(root, space)) return Succeeds(error);
  *sectors = static_cast<DWORD>(space.sectors_per_cluster);
  *bytes = static_cast<DWORD>(space.bytes_per_sector);
  *free = static_cast<DWORD>(space.free_clusters);
  *total = static_cast<DWORD>(space.total_clusters);
  return TRUE;
}

UINT WINAPI WindowsFolder(char* out, UINT room) {
  const std::string folder = Drives().WindowsFolder();
  PutText(folder, out, room);
  return static_cast<UINT>(folder.size());
}

}  // namespace

void PatchDriveCalls() {
  Patch("NtFsControlFile", ControlFile);
  Patch("NtQueryInformationFile", QueryFile);
  Patch("DeviceIoControl", ControlDevice);
  Patch("CreateFileA", OpenA);
  Patch("CreateFileW", OpenW);
  Patch("CloseHandle", Close);
  Patch("ReadFile", Read);
  Patch("SetFilePointer", Seek);
  Patch("FindFirstFileW", FindFirst);
  Patch("FindNextFileW", FindNext);
  Patch("FindClose", EndFind);
  Patch("GetLogicalDriveStringsA", DriveStrings);
  Patch("GetDriveTypeA", DriveType);
  Patch("GetVolumeInformationA", VolumeInformation);
  Patch("GetDiskFreeSpaceA", DiskFreeSpace);
  Patch("GetWindowsDirectoryA", WindowsFolder);
}

}  // namespace vornalux::play
