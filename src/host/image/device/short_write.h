// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <system_error>

namespace vornalux {

// The error of a write that took nothing of what was left and gave no reason.
inline std::error_code ShortWrite() {
  class Category final : public std::error_category {
   public:
    const char* name() const noexcept override { return "short write"; }
    std::string message(int) const override { return "Only a part of it was taken"; }
  };
  static const Category category;
  return {1, category};
}

}  // namespace vornalux
