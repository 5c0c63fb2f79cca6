// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_library.h"

#include <array>
#include <cstring>
#include <utility>

namespace vornalux {
namespace {

constexpr std::size_t kMostText = 4096;  // a damaged volume can be very talkative

std::string& Messages() {
  thread_local std::string messages;
  return messages;
}

}  // namespace

// The library reads errno after it has logged, so that must survive.
extern "C" {
static int CollectMessage(const char*, const char*, int, u32 level, void*, const char* format,
                          va_list arguments) {
  const int error_number = errno;
  try {
    std::array<char, 512> text{};
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    std::string& all = Messages();
    if (length > 0 && all.size() < kMostText) {
      if (!all.empty() && all.back() != '\n') all += '\n';
      all += text.data();
      if (level & NTFS_LOG_LEVEL_PERROR) all += std::string(": ") + std::strerror(error_number);
    }
  } catch (...) {
    // A lost message is no reason to fail.
  }
  errno = error_number;
  return 0;
}
}

void CollectLibraryMessages() { ntfs_log_set_handler(CollectMessage); }

std::string TakeLibraryMessages() {
  std::string text = std::exchange(Messages(), {});
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace vornalux
