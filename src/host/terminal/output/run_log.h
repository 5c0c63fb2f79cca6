// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "host/terminal/output/output_file.h"

namespace vornalux {

// Now, by strftime's format.
std::string LocalTimeText(const char* format);

// What happens in runs, each line with its time and process, behind what earlier runs have written.
class RunLog {
 public:
  // The file outlives the log.
  void Use(OutputFile& file) { file_ = &file; }

  // A line for each line of the text; blank ones are left out. Nothing without a file.
  void Write(std::string_view text);

  // The reason of the first write that failed.
  std::error_code Error() const { return error_; }

 private:
  OutputFile* file_ = nullptr;
  std::error_code error_;
};

}  // namespace vornalux
