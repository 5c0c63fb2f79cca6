// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <sys/stat.h>

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace vornalux {

// A path that must not be written to, or cannot be; what() names it and the option.
class OutputRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The same file or device, by whatever names.
bool SameFile(const struct stat& a, const struct stat& b);

// Writes all of it, or gives the reason why not.
std::error_code WriteAll(int descriptor, std::string_view data);

// A file that a command writes to when its volumes are in order again. It is opened before the work
// begins, so that a bad path is found in time, and keeps its old content until it is written.
class OutputFile {
 public:
  OutputFile() = default;
  // Removes a file that was made and never written to.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // option is what messages call the file by, such as "--png". Throws OutputRefused for what cannot
  // be opened, is in use, or is neither a file nor something that takes a stream of bytes.
  void Open(const std::string& option, const std::string& path);

  // The same for a log: what it holds stays, and what is written comes behind it.
  void OpenToAppend(const std::string& option, const std::string& path);

  // Standard output in place of a file: its reader gets nothing else.
  void UseStandardOutput(const std::string& option);
  bool IsStandardOutput() const { return standard_output_; }

  // Keeps other runs away, of a log those that would replace it. Throws OutputRefused when one is
  // there.
  void Lock() const;

  bool IsOpen() const { return descriptor_ >= 0; }
  int Descriptor() const { return descriptor_; }
  const struct stat& Status() const { return status_; }
  // "--png map.png"
  const std::string& Name() const { return name_; }
  [[noreturn]] void Refuse(const std::string& why) const;

  // Drops what an old file holds, the first time.
  std::error_code Start();
  // To be called after Start(), but for a log.
  std::error_code Append(std::string_view text);
  // Makes this the whole content.
  std::error_code Replace(std::span<const char> content);

 private:
  void OpenDescriptor(const std::string& path);

  std::string name_;
  std::string created_;  // the path of a file that was not there before
  int descriptor_ = -1;
  struct stat status_ = {};
  bool started_ = false;
  bool append_ = false;
  bool standard_output_ = false;
};

}  // namespace vornalux
