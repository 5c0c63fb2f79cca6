// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/desktop.h"
#include "platform/registry.h"

namespace vornalux {

// String values and whole keys of the registry. root: an open key or kClassesRoot; an empty value
// name is the key's default value.
class modReg {
 public:
  modReg(Registry& registry, Desktop& desktop) : registry_(registry), desktop_(desktop) {}

  // Makes the key where there is none. A failure is silent.
  void WriteString(Handle root, const std::string& path, const std::string& name,
                   const std::string& data);

  // Up to its first NUL; empty when there is no such key or value.
  std::string ReadString(Handle root, const std::string& path, const std::string& name);

  // Deletes the key with all keys below it; what cannot be deleted stays. The user hears only of a
  // parent that cannot be opened.
  void DeleteKeyTree(Handle root, const std::string& path);

 private:
  void DeleteSubkeys(Handle root, const std::string& path, int depth);

  Registry& registry_;
  Desktop& desktop_;
};

}  // namespace vornalux
