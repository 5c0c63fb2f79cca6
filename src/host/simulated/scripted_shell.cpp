// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/scripted_shell.h"

#include "text/ascii_case.h"

namespace vornalux {
namespace {

class ScriptedShortcut final : public ShellShortcut {
 public:
  ScriptedShortcut(ScriptedShell& owner, std::string path)
      : owner_(owner), path_(std::move(path)) {}

  ShellResult Put(const std::string& property, const std::string& value) override {
    content_ += property + "=" + value + "\n";
    return owner_.Step("put " + property);
  }
  ShellResult Put(const std::string& property, std::int32_t value) override {
    return Put(property, std::to_string(value));
  }
  ShellResult Save() override {
    ShellResult result = owner_.Step("save");
    if (!result.Failed()) owner_.files[path_] = content_;
    return result;
  }

 private:
  ScriptedShell& owner_;
  std::string path_;
  std::string content_;
};

class Shell final : public ScriptShell {
 public:
  explicit Shell(ScriptedShell& owner) : owner_(owner) { ++owner_.shells; }
  ~Shell() override { --owner_.shells; }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  ShellResult SpecialFolder(const std::string& name, std::string& folder) override {
    folder.clear();
    for (const auto& [known, path] : owner_.folders) {
      if (EqualIgnoringAsciiCase(known, name)) folder = path;
    }
    return owner_.Step("folder " + name);
  }
  ShellResult CreateShortcut(const std::string& path,
                             std::unique_ptr<ShellShortcut>& shortcut) override {
    shortcut = std::make_unique<ScriptedShortcut>(owner_, path);
    return owner_.Step("shortcut");
  }

 private:
  ScriptedShell& owner_;
};

}  // namespace

ShellResult ScriptedShell::CreateScriptShell(std::unique_ptr<ScriptShell>& shell) {
  ShellResult result = Step("create");
  if (!result.Failed()) shell = std::make_unique<Shell>(*this);
  return result;
}

std::string ScriptedShell::ExpandEnvironment(const std::string& text) {
  std::string out = text;
  for (const auto& [name, value] : environment) {
    const std::size_t at = out.find(name);
    if (at != std::string::npos) out.replace(at, name.size(), value);
  }
  return out;
}

ErrorCode ScriptedShell::WriteTextFile(const std::string& path, const std::string& text) {
  const ShellResult result = Step("write");
  if (!result.Failed()) files[path] = text;
  return result.error;
}

}  // namespace vornalux
