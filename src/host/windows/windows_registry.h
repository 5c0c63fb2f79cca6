// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/registry.h"

namespace vornalux {

// The system's registry, with names and values in its ANSI code page.
class WindowsRegistry final : public Registry {
 public:
  ErrorCode CreateKey(Handle root, const std::string& path, std::uint32_t access,
                      Handle& key) override;
  ErrorCode OpenKey(Handle root, const std::string& path, std::uint32_t access,
                    Handle& key) override;
  void CloseKey(Handle key) override;
  ErrorCode SetValue(Handle key, const std::string& name, const std::string& text) override;
  ErrorCode EnumValue(Handle key, std::uint32_t index, std::string& name,
                      std::string& text) override;
  ErrorCode EnumKey(Handle key, std::uint32_t index, std::string& name) override;
  ErrorCode DeleteKey(Handle key, const std::string& name) override;
};

}  // namespace vornalux
