// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"

namespace vornalux {

// The key that stands for HKEY_CLASSES_ROOT: always open, never closed.
inline constexpr Handle kClassesRoot = static_cast<std::int32_t>(0x80000000);

// What an open key may be used for.
namespace key_access {
inline constexpr std::uint32_t kQueryValue = 1;
inline constexpr std::uint32_t kAll = 63;
}  // namespace key_access

// The system's registry: keys below open keys, paths with backslashes.
class Registry {
 public:
  virtual ~Registry() = default;

  // Opens the key, or makes it with all keys on the way. Lasting, not volatile.
  virtual ErrorCode CreateKey(Handle root, const std::string& path, std::uint32_t access,
                              Handle& key) = 0;
  virtual ErrorCode OpenKey(Handle root, const std::string& path, std::uint32_t access,
                            Handle& key) = 0;
  virtual void CloseKey(Handle key) = 0;

  // A string value; an empty name is the key's default value.
  virtual ErrorCode SetValue(Handle key, const std::string& name, const std::string& text) = 0;

  // The value and the subkey with this number, from 0 on, in the system's order; kNoMoreItems after
  // the last one. text may hold NULs, or be no text at all.
  virtual ErrorCode EnumValue(Handle key, std::uint32_t index, std::string& name,
                              std::string& text) = 0;
  virtual ErrorCode EnumKey(Handle key, std::uint32_t index, std::string& name) = 0;

  // A subkey without subkeys of its own.
  virtual ErrorCode DeleteKey(Handle key, const std::string& name) = 0;
};

}  // namespace vornalux
