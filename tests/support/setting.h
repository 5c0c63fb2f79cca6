// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdlib>
#include <string>

namespace vornalux::test {

// An environment variable for the programs started meanwhile.
class Setting {
 public:
  Setting(const char* name, const std::string& value) : name_(name) {
    setenv(name, value.c_str(), 1);
  }
  ~Setting() { unsetenv(name_); }
  Setting(const Setting&) = delete;
  Setting& operator=(const Setting&) = delete;

 private:
  const char* name_;
};

}  // namespace vornalux::test
