// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_files.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

#include "host/windows/file_system_answers.h"
#include "host/windows/file_system_control.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"
#include "volume/owned_handle.h"

namespace vornalux {
namespace {

constexpr std::size_t kReadBytesLimit = std::size_t{64} << 20;
constexpr std::size_t kReadBytesPiece = std::size_t{64} << 10;

constexpr std::size_t kFirstStreamsAnswer = std::size_t{4} << 10;
constexpr std::size_t kLongestStreamsAnswer = std::size_t{16} << 20;

static_assert(sizeof(STARTING_VCN_INPUT_BUFFER) == 8);

DWORD AccessBits(FileAccess access) {
  return access == FileAccess::GenericRead ? GENERIC_READ : FILE_READ_ATTRIBUTES | SYNCHRONIZE;
}

DWORD FlagBits(FileFlags flags) {
  switch (flags) {
    case FileFlags::NoBuffering:
      return FILE_FLAG_NO_BUFFERING;
    case FileFlags::BackupSemantics:
      return FILE_FLAG_BACKUP_SEMANTICS;
    case FileFlags::None:
      break;
  }
  return 0;
}

class SystemSearch final : public FolderSearch {
 public:
  SystemSearch(HANDLE search, const WIN32_FIND_DATAW& first) : search_(search), found_(first) {}
  ~SystemSearch() override { FindClose(search_); }
  SystemSearch(const SystemSearch&) = delete;
  SystemSearch& operator=(const SystemSearch&) = delete;

  bool Next(FolderEntry& entry) override {
    if (!std::exchange(have_, false) && !FindNextFileW(search_, &found_)) return false;
    entry.name = FromWide(found_.cFileName);
    entry.attributes = found_.dwFileAttributes;
    return true;
  }

 private:
  HANDLE search_;
  WIN32_FIND_DATAW found_;
  bool have_ = true;  // the first one came with the search
};

}  // namespace

OpenedFile WindowsFiles::OpenPath(const std::string& path, FileAccess access, FileFlags flags) {
  const std::optional<std::wstring> wide = ToWidePath(path);
  if (!wide) return {.handle = kInvalidHandle, .error = error::kInvalidName};
  const HANDLE file =
      CreateFileW(wide->c_str(), AccessBits(access), FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, FlagBits(flags), nullptr);
  if (file == INVALID_HANDLE_VALUE) return {.handle = kInvalidHandle, .error = LastError()};
  return {.handle = Portable(file), .error = error::kSuccess};
}

void WindowsFiles::CloseFile(Handle file) { CloseHandle(Native(file)); }

ErrorCode WindowsFiles::RetrievalPointers(Handle file, std::int64_t starting_vcn,
                                          std::size_t max_extents, ExtentChunk& out) {
  STARTING_VCN_INPUT_BUFFER start{};
  start.StartingVcn.QuadPart = starting_vcn;
  const std::size_t size = ExtentsAnswerSize(max_extents);
  if (answer_.size() < size) answer_.resize(size);
  const std::span<std::uint8_t> answer = std::span(answer_).first(size);
  std::size_t answered = 0;
  const ErrorCode result = FileSystemControl(
      file, FSCTL_GET_RETRIEVAL_POINTERS,
      {reinterpret_cast<const std::uint8_t*>(&start), sizeof start}, answer, answered);
  if (result != error::kSuccess && result != error::kMoreData) return result;
  const ErrorCode taken = TakeExtentsAnswer(answer.first(answered), out);
  return taken != error::kSuccess ? taken : result;
}

ErrorCode WindowsFiles::StreamNames(Handle file, std::vector<std::string>& out) {
  out.clear();
  ErrorCode result = error::kMoreData;
  std::size_t answered = 0;
  std::size_t size = kFirstStreamsAnswer;
  for (; result == error::kMoreData && size <= kLongestStreamsAnswer; size *= 2) {
    if (answer_.size() < size) answer_.resize(size);
    result = QueryStreamInformation(file, std::span(answer_).first(size), answered);
  }
  if (result != error::kSuccess) return result;
  return TakeStreamsAnswer(std::span(answer_).first(answered), out);
}

std::unique_ptr<FolderSearch> WindowsFiles::FindFirst(const std::string& pattern,
                                                      const std::function<bool()>& /*go_on*/) {
  const std::optional<std::wstring> wide = ToWidePath(pattern);
  if (!wide) return nullptr;
  WIN32_FIND_DATAW first;
  const HANDLE search = FindFirstFileW(wide->c_str(), &first);
  if (search == INVALID_HANDLE_VALUE) return nullptr;
  return std::make_unique<SystemSearch>(search, first);
}

std::string WindowsFiles::FromCodePage(std::string text) { return FromAnsi(text); }

ErrorCode WindowsFiles::ReadBytes(const std::string& path, std::string& out) {
  const OpenedFile opened = OpenPath(path, FileAccess::GenericRead, FileFlags::None);
  if (opened.handle == kInvalidHandle) return opened.error;
  const OwnedFile file(*this, opened.handle);

  std::string content;
  for (DWORD done = 1; done != 0;) {
    const std::size_t at = content.size();
    content.resize(at + kReadBytesPiece);
    if (!ReadFile(Native(file.get()), content.data() + at, kReadBytesPiece, &done, nullptr)) {
      return LastError();
    }
    content.resize(at + done);
    if (content.size() > kReadBytesLimit) return error::kNotEnoughMemory;
  }
  out = std::move(content);
  return error::kSuccess;
}

}  // namespace vornalux
