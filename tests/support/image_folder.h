// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/devices.h"

namespace vornalux::test {

inline constexpr std::size_t kMebibyte = std::size_t{1} << 20;

// A folder that goes away at the end, for images that other people's tools make.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "vornalux-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    folder_ = std::filesystem::canonical(name);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string& name) const { return folder_ / name; }

  void Put(const std::string& name, const Bytes& content) const {
    std::ofstream(Path(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
  }

  Bytes Get(const std::string& name) const {
    Bytes content(std::filesystem::file_size(Path(name)));
    std::ifstream(Path(name), std::ios::binary)
        .read(reinterpret_cast<char*>(content.data()),
              static_cast<std::streamsize>(content.size()));
    return content;
  }

  // Runs a shell command in the folder. Throws, with what it printed, when it fails.
  void Run(const std::string& command) const {
    const std::string line = "cd '" + folder_.string() +
                             "' && export LC_ALL=C.UTF-8 MTOOLS_SKIP_CHECK=1 "
                             "PATH=$PATH:/usr/sbin:/sbin && { " +
                             command + "; } >output 2>&1";
    if (std::system(line.c_str()) == 0) return;
    const Bytes output = Get("output");
    throw std::runtime_error(command + " failed: " + std::string(output.begin(), output.end()));
  }

  Bytes Fat() const { return Formatted("mkfs.fat -i 1234ABCD", kMebibyte); }
  Bytes Ntfs() const { return Formatted("mkntfs -F -Q -q", 2 * kMebibyte); }

 private:
  Bytes Formatted(const std::string& command, std::size_t size) const {
    Put("new", Bytes(size));
    Run(command + " new");
    return Get("new");
  }

  std::filesystem::path folder_;
};

// One for each test.
class ImageFolder : public testing::Test, protected ScratchFolder {
 protected:
  using ScratchFolder::Run;
};

}  // namespace vornalux::test
