// SPDX-License-Identifier: GPL-2.0-or-later
#include "shell/registry_strings.h"

#include "text/ascii_case.h"

namespace vornalux {
namespace {

// Deeper than a registry goes; a link to a key above itself would go on for ever.
constexpr int kDeepestKey = 512;

// A key that is open until the end of its scope.
class OpenedKey {
 public:
  OpenedKey(Registry& registry, Handle root, const std::string& path, std::uint32_t access)
      : registry_(registry),
        opened_(registry.OpenKey(root, path, access, key_) == error::kSuccess) {}
  ~OpenedKey() {
    if (opened_) registry_.CloseKey(key_);
  }
  OpenedKey(const OpenedKey&) = delete;
  OpenedKey& operator=(const OpenedKey&) = delete;

  explicit operator bool() const { return opened_; }
  Handle get() const { return key_; }

 private:
  Registry& registry_;
  Handle key_ = kInvalidHandle;
  bool opened_;
};

}  // namespace

void modReg::WriteString(Handle root, const std::string& path, const std::string& name,
                         const std::string& data) {
  Handle key = kInvalidHandle;
  if (registry_.CreateKey(root, path, key_access::kAll, key) != error::kSuccess) return;
  registry_.SetValue(key, name, data);
  registry_.CloseKey(key);
}

std::string modReg::ReadString(Handle root, const std::string& path, const std::string& name) {
  const OpenedKey key(registry_, root, path, key_access::kQueryValue);
  if (!key) return {};
  std::string found;
  std::string data;
  for (std::uint32_t i = 0; registry_.EnumValue(key.get(), i, found, data) == error::kSuccess;
       ++i) {
    // The system does not tell names apart by case.
    if (EqualIgnoringAsciiCase(found, name)) return data.substr(0, data.find('\0'));
  }
  return {};
}

void modReg::DeleteKeyTree(Handle root, const std::string& given_path) {
  const std::string path = given_path.substr(0, given_path.size() - given_path.ends_with('\\'));
  if (path.empty()) return;  // the root itself
  DeleteSubkeys(root, path, 0);
  const std::size_t last = path.rfind('\\');
  if (last == std::string::npos) {
    registry_.DeleteKey(root, path);
    return;
  }
  const OpenedKey parent(registry_, root, path.substr(0, last), key_access::kAll);
  if (!parent) {
    desktop_.ShowBox("Error opening parent key", kProgramTitle, BoxButtons::Ok, BoxIcon::None);
    return;
  }
  registry_.DeleteKey(parent.get(), path.substr(last + 1));
}

// The first one each time, since each deletion moves the others up. One that stays ends it: it
// would be the first for ever.
void modReg::DeleteSubkeys(Handle root, const std::string& path, int depth) {
  const OpenedKey key(registry_, root, path, key_access::kAll);
  if (!key || depth == kDeepestKey) return;
  std::string name;
  std::string deleted;
  while (registry_.EnumKey(key.get(), 0, name) == error::kSuccess && name != deleted) {
    DeleteSubkeys(root, path + "\\" + name, depth + 1);
    if (registry_.DeleteKey(key.get(), name) != error::kSuccess) return;
    deleted = name;
  }
}

}  // namespace vornalux
