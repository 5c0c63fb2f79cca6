// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace vornalux {

struct DiskCheckOptions {
  bool correct_errors = false;
  bool verbose = false;
  bool only_if_dirty = true;
  bool scan_drive = false;
};

// What a message of the check is about; others are of no interest.
namespace check_command {
inline constexpr std::uint32_t kProgress = 0;
inline constexpr std::uint32_t kDone = 11;
inline constexpr std::uint32_t kOutput = 14;
}  // namespace check_command

// What the check says on its way. The host reads it from the library's memory and keeps to what can
// be read.
struct CheckMessage {
  std::uint32_t command = 0;
  std::int32_t number = 0;          // a percentage, or a flag of one byte
  std::optional<std::string> line;  // text up to its first NUL; none when it could not be read
};

// The system's library of file-system utilities, loaded for one check at a time.
class CheckLibrary {
 public:
  // True: go on.
  using Callback = std::function<bool(const CheckMessage&)>;

  virtual ~CheckLibrary() = default;

  // False when the library or its check is missing; then nothing is loaded.
  virtual bool Load() = 0;
  virtual void Free() = 0;

  // Nobody else has the volume ("\\.\C:") open.
  virtual bool CanOpenForWriting(const std::string& device_path) = 0;

  // Checks the volume with this root; the callback is called on the way.
  virtual void Check(const std::string& root, const std::string& file_system,
                     const DiskCheckOptions& options, const Callback& callback) = 0;
};

}  // namespace vornalux
