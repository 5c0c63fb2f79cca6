// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace vornalux::checking {

// Collects what is wrong, up to a limit: a corrupt volume may have millions of faults.
class Problems {
 public:
  Problems(std::vector<std::string>& out, std::size_t limit) : out_(out), limit_(limit) {}

  // One problem from its parts, written one after the other.
  template <typename... Parts>
  void Add(const Parts&... parts) {
    if (out_.size() == limit_) out_.push_back("more problems, not listed");
    if (out_.size() > limit_) return;
    std::ostringstream text;
    (text << ... << parts);
    std::string line = text.str();
    // Names come from the volume: they must not break lines or talk to a terminal.
    for (char& c : line) {
      if (static_cast<unsigned char>(c) < 0x20) c = '?';
    }
    out_.push_back(std::move(line));
  }

 private:
  std::vector<std::string>& out_;
  std::size_t limit_;
};

}  // namespace vornalux::checking
