// SPDX-License-Identifier: GPL-2.0-or-later
// Loaded into the program under test ahead of the C library: lets the process die inside the event
// that VORNALUX_KILL_AT names (from 1 on): a write with only a part of it done, as a kill may leave
// it, or just before a flush, a hole or a removal. VORNALUX_FAIL_AT names the event that fails
// instead, VORNALUX_FAIL_FROM as well all that come after it, with the error number that
// VORNALUX_ERROR names; without one a write takes only a part. With VORNALUX_TAKES nothing more is
// taken after so many bytes, and no reason given. With VORNALUX_SIGNAL it gets that signal before
// the event instead, which is then done. Disks that cannot be read: VORNALUX_FAIL_READ names the
// reading that fails (from 1 on), VORNALUX_FAIL_READS as well all that come after it, and
// VORNALUX_BAD_BYTES=FROM:TO what nobody can read, VORNALUX_FULL_BYTES what there is no room for.
// VORNALUX_NO_HOLES: files that can have none. A
// disk that is slow: each write takes VORNALUX_PAUSE microseconds longer. With VORNALUX_COUNT the
// numbers of events and of readings go to that file in the end.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kSector = 512;

std::size_t events = 0;
std::size_t reads = 0;

std::size_t Number(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr ? std::strtoull(value, nullptr, 10) : 0;
}

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Partly>
void Event(Partly partly) {
  static const std::size_t at = Number("VORNALUX_KILL_AT");
  static const std::size_t signal = Number("VORNALUX_SIGNAL");
  if (++events != at) return;
  if (signal != 0) {
    raise(static_cast<int>(signal));
    return;
  }
  partly();
  kill(getpid(), SIGKILL);
}

bool Fails() {
  static const std::size_t at = Number("VORNALUX_FAIL_AT");
  static const std::size_t from = Number("VORNALUX_FAIL_FROM");
  static const auto error = static_cast<int>(Number("VORNALUX_ERROR"));
  if (events != at && (from == 0 || events < from)) return false;
  errno = error;
  return true;
}

std::size_t Taken(std::size_t size) {
  static const bool limited = std::getenv("VORNALUX_TAKES") != nullptr;
  static std::size_t left = Number("VORNALUX_TAKES");
  if (!limited) return size;
  const std::size_t taken = size < left ? size : left;
  left -= taken;
  return taken;
}

struct Bad {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  explicit Bad(const char* variable) {
    const char* const text = std::getenv(variable);
    char* rest = nullptr;
    if (text == nullptr) return;
    from = std::strtoull(text, &rest, 10);
    to = std::strtoull(rest + 1, nullptr, 10);
  }
  bool Has(std::uint64_t start, std::size_t size) const {
    return start < to && start + size > from;
  }
};

using WriteAt = ssize_t (*)(int, const void*, std::size_t, off_t);

ssize_t CountedWrite(const char* name, int file, const void* data, std::size_t size, off_t at) {
  const auto real = Real<WriteAt>(name);
  Event([&] {
    // Sectors are written whole or not at all.
    const std::size_t part = (events * 7919 % (size / kSector + 1)) * kSector;
    if (part > 0) real(file, data, part, at);
  });
  if (Fails()) {
    if (errno != 0 || size <= kSector) return errno != 0 ? -1 : real(file, data, size, at);
    return real(file, data, kSector, at);
  }
  static const auto pause = static_cast<useconds_t>(Number("VORNALUX_PAUSE"));
  if (pause > 0) usleep(pause);
  static const Bad full("VORNALUX_FULL_BYTES");
  if (full.Has(static_cast<std::uint64_t>(at), size)) {
    errno = ENOSPC;
    return -1;
  }
  size = Taken(size);
  return size == 0 ? 0 : real(file, data, size, at);
}

using ReadAt = ssize_t (*)(int, void*, std::size_t, off_t);

ssize_t CountedRead(const char* name, int file, void* data, std::size_t size, off_t at) {
  static const std::size_t once = Number("VORNALUX_FAIL_READ");
  static const std::size_t for_ever = Number("VORNALUX_FAIL_READS");
  static const Bad bad("VORNALUX_BAD_BYTES");
  ++reads;
  const auto start = static_cast<std::uint64_t>(at);
  const bool in_bad = bad.Has(start, size);
  if (reads == once || (for_ever != 0 && reads >= for_ever) || (in_bad && start >= bad.from)) {
    errno = EIO;
    return -1;
  }
  return Real<ReadAt>(name)(file, data, in_bad ? bad.from - start : size, at);
}

struct Counter {
  ~Counter() {
    const char* const path = std::getenv("VORNALUX_COUNT");
    if (!path) return;
    if (std::FILE* const out = std::fopen(path, "w")) {
      std::fprintf(out, "%zu %zu\n", events, reads);
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

ssize_t pwrite(int file, const void* data, std::size_t size, off_t at) {
  return CountedWrite("pwrite", file, data, size, at);
}

ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t at) {
  return CountedWrite("pwrite64", file, data, size, at);
}

ssize_t write(int file, const void* data, std::size_t size) {
  const std::size_t taken = file == STDERR_FILENO ? size : Taken(size);
  return taken == 0 ? 0
                    : Real<ssize_t (*)(int, const void*, std::size_t)>("write")(file, data, taken);
}

int fdatasync(int file) {
  Event([] {});
  if (Fails() && errno != 0) return -1;
  return Real<int (*)(int)>("fdatasync")(file);
}

int fsync(int file) {
  Event([] {});
  if (Fails() && errno != 0) return -1;
  return Real<int (*)(int)>("fsync")(file);
}

// Time passes slowly, since commits that come after a second of work must not come elsewhere when
// the machine is busy.
int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = Real<int (*)(clockid_t, timespec*)>("clock_gettime")(clock, time);
  static const bool as_it_is = std::getenv("VORNALUX_PAUSE") != nullptr;
  if (as_it_is || clock != CLOCK_MONOTONIC || result != 0) return result;
  const std::int64_t slow = (time->tv_sec * std::int64_t{1000000000} + time->tv_nsec) / 1000;
  *time = {.tv_sec = slow / 1000000000, .tv_nsec = slow % 1000000000};
  return 0;
}

int fallocate(int file, int mode, off_t at, off_t size) {
  const bool hole = (mode & FALLOC_FL_PUNCH_HOLE) != 0;
  static const bool none = std::getenv("VORNALUX_NO_HOLES") != nullptr;
  if (hole && none) {
    errno = EOPNOTSUPP;
    return -1;
  }
  if (hole) Event([] {});
  return Real<int (*)(int, int, off_t, off_t)>("fallocate")(file, mode, at, size);
}

int unlink(const char* path) noexcept {
  Event([] {});
  if (Fails() && errno != 0) return -1;
  return Real<int (*)(const char*)>("unlink")(path);
}

}  // extern "C"
