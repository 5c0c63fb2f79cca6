// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/error_text.h"

#include <string_view>

namespace vornalux {

namespace {

std::string_view Sentence(ErrorCode code) {
  switch (code) {
    case error::kSuccess:
      return "The operation completed successfully.";
    case error::kInvalidFunction:
      return "Incorrect function.";
    case error::kFileNotFound:
      return "The system cannot find the file specified.";
    case error::kPathNotFound:
      return "The system cannot find the path specified.";
    case error::kAccessDenied:
      return "Access is denied.";
    case error::kInvalidHandle:
      return "The handle is invalid.";
    case error::kNotEnoughMemory:
      return "Not enough storage is available to process this command.";
    case error::kNoMoreFiles:
      return "There are no more files.";
    case error::kWriteProtect:
      return "The media is write protected.";
    case error::kNotReady:
      return "The device is not ready.";
    case error::kSeek:
      return "The drive cannot locate a specific area or track on the disk.";
    case error::kWriteFault:
      return "The system cannot write to the specified device.";
    case error::kReadFault:
      return "The system cannot read from the specified device.";
    case error::kGenFailure:
      return "A device attached to the system is not functioning.";
    case error::kSharingViolation:
      return "The process cannot access the file because it is being used by another process.";
    case error::kHandleEof:
      return "Reached the end of the file.";
    case error::kNotSupported:
      return "The request is not supported.";
    case error::kInvalidParameter:
      return "The parameter is incorrect.";
    case error::kDiskFull:
      return "There is not enough space on the disk.";
    case error::kInvalidName:
      return "The filename, directory name, or volume label syntax is incorrect.";
    case error::kFileTooLarge:
      return "The file size exceeds the limit allowed and cannot be saved.";
    case error::kMoreData:
      return "More data is available.";
    case error::kOperationAborted:
      return "The I/O operation has been aborted because of either a thread exit or an application "
             "request.";
    case error::kFileCorrupt:
      return "The file or directory is corrupted and unreadable.";
    default:
      return {};
  }
}

}  // namespace

std::string EnglishErrorText(ErrorCode code) {
  const std::string_view sentence = Sentence(code);
  return sentence.empty() ? std::string() : std::string(sentence) + "\r\n";
}

}  // namespace vornalux
