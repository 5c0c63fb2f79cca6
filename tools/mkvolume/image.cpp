// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/image.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vornalux::making {
namespace {

constexpr std::size_t kBufferSize = 1U << 20;

[[noreturn]] void Fail(const std::string& path, const char* action) {
  throw std::runtime_error(std::string("cannot ") + action + " " + path + ": " +
                           std::strerror(errno));
}

}  // namespace

Image Image::Create(const std::string& path, std::uint64_t size) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) Fail(path, "create");
  Image image(path, file);
  if (ftruncate(file, static_cast<off_t>(size)) != 0) Fail(path, "size");
  return image;
}

Image Image::Open(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0) Fail(path, "open");
  return {path, file};
}

Image::Image(Image&& other) noexcept
    : path_(std::move(other.path_)), file_(std::exchange(other.file_, -1)) {}

Image::~Image() {
  if (file_ >= 0) close(file_);
}

void Image::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  while (!out.empty()) {
    const ssize_t got = pread(file_, out.data(), out.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = EIO;
    if (got <= 0) Fail(path_, "read");
    out = out.subspan(static_cast<std::size_t>(got));
    offset += static_cast<std::uint64_t>(got);
  }
}

void Image::Write(std::uint64_t offset, std::span<const std::uint8_t> data) {
  while (!data.empty()) {
    const ssize_t put = pwrite(file_, data.data(), data.size(), static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) Fail(path_, "write");
    data = data.subspan(static_cast<std::size_t>(put));
    offset += static_cast<std::uint64_t>(put);
  }
}

std::string WriteStream(Image& image, const ClusterPlaces& places, const PlannedStream& stream,
                        const std::vector<PlacedRun>& runs) {
  static thread_local std::vector<std::uint8_t> buffer(kBufferSize);
  ContentHash hash;
  std::uint64_t hashed = 0;
  const std::uint64_t size = stream.payload.size;
  for (const PlacedRun& run : runs) {
    const std::uint64_t start = static_cast<std::uint64_t>(run.vcn) * places.cluster;
    if (start > hashed) hash.AddZeros(std::min(start, size) - hashed);
    const std::uint64_t bytes = static_cast<std::uint64_t>(run.count) * places.cluster;
    for (std::uint64_t done = 0; done < bytes;) {
      const std::span<std::uint8_t> part(
          buffer.data(),
          static_cast<std::size_t>(std::min<std::uint64_t>(bytes - done, buffer.size())));
      stream.payload.Fill(start + done, part);
      image.Write(places.Of(run.lcn) + done, part);
      const std::uint64_t left = size - std::min(size, start + done);
      hash.Add(part.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, part.size()))));
      done += part.size();
    }
    hashed = std::min(size, start + bytes);
  }
  hash.AddZeros(size - hashed);
  return hash.Finish();
}

std::string HashStream(const PlannedStream& stream) {
  ContentHash hash;
  std::vector<std::uint8_t> buffer(
      static_cast<std::size_t>(std::min<std::uint64_t>(stream.payload.size, kBufferSize)));
  for (std::uint64_t at = 0; at < stream.payload.size; at += buffer.size()) {
    stream.payload.Fill(at, buffer);
    hash.Add(std::span(buffer).first(static_cast<std::size_t>(
        std::min<std::uint64_t>(stream.payload.size - at, buffer.size()))));
  }
  return hash.Finish();
}

void RunTool(const std::vector<std::string>& command) {
  std::array<int, 2> pipe_ends{};
  if (pipe2(pipe_ends.data(), O_CLOEXEC) != 0) Fail(command[0], "run");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], 1);
  posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], 2);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t child = 0;
  // These tools live where a user's search path often does not lead.
  int code = ENOENT;
  for (const char* folder : {"", "/usr/sbin/", "/sbin/"}) {
    code = posix_spawnp(&child, (folder + command[0]).c_str(), &actions, nullptr, arguments.data(),
                        environ);
    if (code != ENOENT) break;
  }
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_ends[1]);
  std::string output;
  std::array<char, 4096> part{};
  for (ssize_t got = 0; code == 0 && (got = read(pipe_ends[0], part.data(), part.size())) > 0;) {
    output.append(part.data(), static_cast<std::size_t>(got));
  }
  close(pipe_ends[0]);
  errno = code;
  if (code != 0) Fail(command[0], "run");
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(command[0] + " failed: " + output);
  }
}

void CopySparse(const Image& from, Image& to, std::uint64_t offset) {
  std::vector<std::uint8_t> buffer(kBufferSize);
  for (off_t at = 0;;) {
    const off_t data = lseek(from.Descriptor(), at, SEEK_DATA);
    if (data < 0) {
      if (errno == ENXIO) return;  // only a hole up to the end
      Fail(from.Path(), "read");
    }
    const off_t hole = lseek(from.Descriptor(), data, SEEK_HOLE);
    if (hole < 0) Fail(from.Path(), "read");
    for (at = data; at < hole;) {
      const auto part =
          std::span(buffer).first(std::min(buffer.size(), static_cast<std::size_t>(hole - at)));
      from.Read(static_cast<std::uint64_t>(at), part);
      to.Write(offset + static_cast<std::uint64_t>(at), part);
      at += static_cast<off_t>(part.size());
    }
  }
}

}  // namespace vornalux::making
