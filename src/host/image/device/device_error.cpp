// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/device/device_error.h"

#include <cerrno>

#include "host/image/device/short_write.h"

namespace vornalux {

ErrorCode FromDevice(std::error_code code) {
  if (!code) return error::kSuccess;
  if (code == std::errc::no_space_on_device) return error::kDiskFull;
#ifdef EDQUOT
  if (code == std::error_code(EDQUOT, std::generic_category())) return error::kDiskFull;
#endif
  if (code == std::errc::file_too_large) return error::kFileTooLarge;
  if (code == ShortWrite()) return error::kWriteFault;
  if (code == std::errc::read_only_file_system) return error::kWriteProtect;
  if (code == std::errc::permission_denied) return error::kAccessDenied;
  if (code == std::errc::operation_not_permitted) return error::kAccessDenied;
  if (code == std::errc::not_enough_memory) return error::kNotEnoughMemory;
  if (code == std::errc::invalid_argument) return error::kInvalidParameter;
  if (code == std::errc::operation_canceled) return error::kOperationAborted;
  if (code == std::errc::no_such_file_or_directory) return error::kFileNotFound;
  return error::kGenFailure;
}

}  // namespace vornalux
