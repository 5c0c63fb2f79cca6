// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/registry.h"

namespace vornalux {

// A registry in memory whose only root is kClassesRoot. Names are compared without regard to the
// case of ASCII letters, and enumerated in that order.
class MemoryRegistry final : public Registry {
 public:
  MemoryRegistry();

  // Paths of keys that cannot be opened at all, and of such that cannot be deleted.
  std::set<std::string> unopenable;
  std::set<std::string> undeletable;
  // Subkeys are said to be deleted, and stay.
  bool deletes_nothing = false;
  // Enumerations of subkeys so far.
  int key_enumerations = 0;

  // Makes the key with all on the way; its default value becomes text.
  void Add(const std::string& path, const std::string& text = {});
  // Every key and value as "path|name=text" lines: two equal dumps, two equal registries.
  std::string Dump() const;
  // Keys that were opened and not closed.
  std::size_t OpenKeys() const { return open_.size(); }

  ErrorCode CreateKey(Handle root, const std::string& path, std::uint32_t access,
                      Handle& key) override;
  ErrorCode OpenKey(Handle root, const std::string& path, std::uint32_t access,
                    Handle& key) override;
  void CloseKey(Handle key) override { open_.erase(key); }
  ErrorCode SetValue(Handle key, const std::string& name, const std::string& text) override;
  ErrorCode EnumValue(Handle key, std::uint32_t index, std::string& name,
                      std::string& text) override;
  ErrorCode EnumKey(Handle key, std::uint32_t index, std::string& name) override;
  ErrorCode DeleteKey(Handle key, const std::string& name) override;

 private:
  struct WithoutCase {
    bool operator()(const std::string& a, const std::string& b) const;
  };
  struct Key {
    std::string path;
    std::map<std::string, std::string, WithoutCase> values;
    std::map<std::string, std::shared_ptr<Key>, WithoutCase> subkeys;
  };
  struct OpenedKey {
    std::shared_ptr<Key> key;
    std::uint32_t access = 0;
  };

  // The open key, when it may be used for all of access; else null.
  std::shared_ptr<Key> Use(Handle key, std::uint32_t access) const;
  ErrorCode Reach(Handle root, const std::string& path, std::uint32_t access, bool create,
                  Handle& key);
  static void DumpKey(const Key& key, std::string& out);

  std::shared_ptr<Key> root_;
  std::unordered_map<Handle, OpenedKey> open_;
  Handle last_handle_ = 0;
};

}  // namespace vornalux
