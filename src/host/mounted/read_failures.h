// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/types.h"

namespace vornalux {

// Something of a volume that is there, but could not be read.
struct ReadFailure {
  std::string path;                   // "C:\dir\file"; "C:\" for what belongs to no file
  ErrorCode code = error::kSuccess;   // what the program was answered
  std::optional<std::uint64_t> byte;  // of the volume, where the disk failed, when it did
};

// What a run could not read, each path once. The program counts such files among those that are in
// use or not there; whoever shows its figures must say that they are not the whole.
class ReadFailures {
 public:
  // An answer such as "no such file" is no failure, unless the disk failed at a byte.
  void Note(std::string_view path, ErrorCode code, std::optional<std::uint64_t> byte);

  const std::vector<ReadFailure>& List() const { return list_; }
  void Forget() { *this = {}; }

 private:
  std::vector<ReadFailure> list_;
  std::unordered_set<std::string> paths_;
};

}  // namespace vornalux
