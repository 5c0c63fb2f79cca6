// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/read_failures.h"

namespace vornalux {
namespace {

// Codes that say nothing about what is on the volume, only that it could not be found out.
bool CouldNotBeRead(ErrorCode code) {
  switch (code) {
    case error::kNotEnoughMemory:
    case error::kNotReady:
    case error::kSeek:
    case error::kReadFault:
    case error::kGenFailure:
    case error::kFileCorrupt:
      return true;
    default:
      return false;
  }
}

}  // namespace

void ReadFailures::Note(std::string_view path, ErrorCode code, std::optional<std::uint64_t> byte) {
  if (!byte && !CouldNotBeRead(code)) return;
  constexpr std::string_view kLongPrefix = R"(\\?\)";
  if (path.starts_with(kLongPrefix)) path.remove_prefix(kLongPrefix.size());
  if (!paths_.emplace(path).second) return;
  list_.push_back({std::string(path), code, byte});
}

}  // namespace vornalux
