// SPDX-License-Identifier: GPL-2.0-or-later
// Loaded into the program under test ahead of the C library: a disk that cannot be read.
// VORNALUX_FAIL_READ names the reading that fails (from 1 on), VORNALUX_FAIL_READS as well all that
// come after it, and VORNALUX_BAD_BYTES=FROM:TO what nobody can read. With VORNALUX_COUNT_READS the
// number of readings goes to that file in the end.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

std::uint64_t reads = 0;

std::uint64_t Number(const char* name) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : 0;
}

struct Bad {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  Bad() {
    const char* const text = std::getenv("VORNALUX_BAD_BYTES");
    char* rest = nullptr;
    if (text == nullptr) return;
    from = std::strtoull(text, &rest, 10);
    to = std::strtoull(rest + 1, nullptr, 10);
  }
};

using ReadAt = ssize_t (*)(int, void*, std::size_t, off_t);

ssize_t CountedRead(const char* name, int file, void* data, std::size_t size, off_t at) {
  static const std::uint64_t once = Number("VORNALUX_FAIL_READ");
  static const std::uint64_t for_ever = Number("VORNALUX_FAIL_READS");
  static const Bad bad;
  const auto real = reinterpret_cast<ReadAt>(dlsym(RTLD_NEXT, name));
  ++reads;
  const auto start = static_cast<std::uint64_t>(at);
  const bool in_bad = start < bad.to && start + size > bad.from;
  if (reads == once || (for_ever != 0 && reads >= for_ever) || (in_bad && start >= bad.from)) {
    errno = EIO;
    return -1;
  }
  return real(file, data, in_bad ? bad.from - start : size, at);
}

struct Counter {
  ~Counter() {
    const char* const path = std::getenv("VORNALUX_COUNT_READS");
    if (!path) return;
    if (std::FILE* const out = std::fopen(path, "w")) {
      std::fprintf(out, "%ju\n", static_cast<std::uintmax_t>(reads));
      std::fclose(out);
    }
  }
} counter;

}  // namespace

extern "C" {

ssize_t pread(int file, void* data, std::size_t size, off_t at) {
  return CountedRead("pread", file, data, size, at);
}

ssize_t pread64(int file, void* data, std::size_t size, off64_t at) {
  return CountedRead("pread64", file, data, size, at);
}

}  // extern "C"
