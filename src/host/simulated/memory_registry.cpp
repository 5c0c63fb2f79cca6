// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/memory_registry.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <sstream>

#include "text/ascii_case.h"

namespace vornalux {
namespace {

// The rights behind key_access::kAll.
constexpr std::uint32_t kSetValue = 2;
constexpr std::uint32_t kEnumerate = 8;

}  // namespace

bool MemoryRegistry::WithoutCase::operator()(const std::string& a, const std::string& b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [](char x, char y) { return LowerCase(x) < LowerCase(y); });
}

MemoryRegistry::MemoryRegistry() : root_(std::make_shared<Key>()) {}

std::shared_ptr<MemoryRegistry::Key> MemoryRegistry::Use(Handle key, std::uint32_t access) const {
  if (key == kClassesRoot) return root_;
  const auto open = open_.find(key);
  if (open == open_.end() || (open->second.access & access) != access) return nullptr;
  return open->second.key;
}

ErrorCode MemoryRegistry::Reach(Handle root, const std::string& path, std::uint32_t access,
                                bool create, Handle& key) {
  std::shared_ptr<Key> at = Use(root, 0);
  if (at == nullptr) return error::kInvalidHandle;
  std::istringstream parts(path);
  std::string name;
  while (std::getline(parts, name, '\\')) {
    auto next = at->subkeys.find(name);
    if (next == at->subkeys.end()) {
      if (!create) return error::kFileNotFound;
      auto made = std::make_shared<Key>();
      made->path = at->path.empty() ? name : at->path + "\\" + name;
      next = at->subkeys.emplace(name, std::move(made)).first;
    }
    at = next->second;
  }
  if (unopenable.contains(at->path)) return error::kAccessDenied;
  key = ++last_handle_;
  open_[key] = {.key = at, .access = access};
  return error::kSuccess;
}

ErrorCode MemoryRegistry::CreateKey(Handle root, const std::string& path, std::uint32_t access,
                                    Handle& key) {
  return Reach(root, path, access, true, key);
}

ErrorCode MemoryRegistry::OpenKey(Handle root, const std::string& path, std::uint32_t access,
                                  Handle& key) {
  return Reach(root, path, access, false, key);
}

ErrorCode MemoryRegistry::SetValue(Handle key, const std::string& name, const std::string& text) {
  const auto used = Use(key, kSetValue);
  if (used == nullptr) return error::kAccessDenied;
  used->values[name] = text;
  return error::kSuccess;
}

ErrorCode MemoryRegistry::EnumValue(Handle key, std::uint32_t index, std::string& name,
                                    std::string& text) {
  const auto used = Use(key, key_access::kQueryValue);
  if (used == nullptr) return error::kAccessDenied;
  if (index >= used->values.size()) return error::kNoMoreItems;
  const auto value = std::next(used->values.begin(), static_cast<std::ptrdiff_t>(index));
  name = value->first;
  text = value->second;
  return error::kSuccess;
}

ErrorCode MemoryRegistry::EnumKey(Handle key, std::uint32_t index, std::string& name) {
  ++key_enumerations;
  const auto used = Use(key, kEnumerate);
  if (used == nullptr) return error::kAccessDenied;
  if (index >= used->subkeys.size()) return error::kNoMoreItems;
  name = std::next(used->subkeys.begin(), static_cast<std::ptrdiff_t>(index))->first;
  return error::kSuccess;
}

ErrorCode MemoryRegistry::DeleteKey(Handle key, const std::string& name) {
  const auto used = Use(key, 0);
  if (used == nullptr) return error::kInvalidHandle;
  const auto subkey = used->subkeys.find(name);
  if (subkey == used->subkeys.end()) return error::kFileNotFound;
  if (!subkey->second->subkeys.empty()) return error::kAccessDenied;
  if (undeletable.contains(subkey->second->path)) return error::kAccessDenied;
  if (!deletes_nothing) used->subkeys.erase(subkey);
  return error::kSuccess;
}

void MemoryRegistry::Add(const std::string& path, const std::string& text) {
  Handle key = 0;
  if (CreateKey(kClassesRoot, path, key_access::kAll, key) != error::kSuccess) return;
  if (!text.empty()) SetValue(key, {}, text);
  CloseKey(key);
}

std::string MemoryRegistry::Dump() const {
  std::string out;
  DumpKey(*root_, out);
  return out;
}

void MemoryRegistry::DumpKey(const Key& key, std::string& out) {
  if (!key.path.empty()) out += key.path + "\n";
  for (const auto& [name, text] : key.values) out += key.path + "|" + name + "=" + text + "\n";
  for (const auto& [name, subkey] : key.subkeys) DumpKey(*subkey, out);
}

}  // namespace vornalux
