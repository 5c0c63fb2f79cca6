// SPDX-License-Identifier: GPL-2.0-or-later
// Loaded into the program under test ahead of the C library: lets the process die inside the write
// that VORNALUX_KILL_AT names (from 1 on), with only a part of it done, as a kill may leave it.
// With VORNALUX_SIGNAL it gets that signal before the write instead, which is then done. With
// VORNALUX_COUNT_WRITES it writes the number of writes, and of bytes, to that file in the end.
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kSector = 512;

std::size_t writes = 0;
std::size_t bytes = 0;

using WriteAt = ssize_t (*)(int, const void*, std::size_t, off_t);

ssize_t CountedWrite(const char* name, int file, const void* data, std::size_t size, off_t at) {
  static const char* const kill_at = std::getenv("VORNALUX_KILL_AT");
  const auto real = reinterpret_cast<WriteAt>(dlsym(RTLD_NEXT, name));
  ++writes;
  bytes += size;
  static const char* const signal = std::getenv("VORNALUX_SIGNAL");
  const bool now = kill_at && std::strtoull(kill_at, nullptr, 10) == writes;
  if (now && signal) {
    raise(std::atoi(signal));
  } else if (now) {
    // Sectors are written whole or not at all.
    const std::size_t part = (writes * 7919 % (size / kSector + 1)) * kSector;
    if (part > 0) real(file, data, part, at);
    kill(getpid(), SIGKILL);
  }
  return real(file, data, size, at);
}

struct Counter {
  ~Counter() {
    const char* const path = std::getenv("VORNALUX_COUNT_WRITES");
    if (!path) return;
    if (std::FILE* const out = std::fopen(path, "w")) {
      std::fprintf(out, "%zu %zu\n", writes, bytes);
      std::fclose(out);
    }
  }
} counter;

}  // namespace

extern "C" {

ssize_t pwrite(int file, const void* data, std::size_t size, off_t at) {
  return CountedWrite("pwrite", file, data, size, at);
}

ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t at) {
  return CountedWrite("pwrite64", file, data, size, at);
}

}  // extern "C"
