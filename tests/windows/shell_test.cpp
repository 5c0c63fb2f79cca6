// SPDX-License-Identifier: GPL-2.0-or-later
// Shortcuts and verbs as the system keeps them: written by the program's own buttons, read back by
// the system's own calls.
#include <gtest/gtest.h>

#include <cstdlib>

#include "app/program.h"
#include "app/shortcut.h"
#include "host/simulated/simulated_platform.h"
#include "host/windows/command_line.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_registry.h"
#include "host/windows/windows_shell_objects.h"
#include "host/windows/windows_text.h"
#include "play/import_patch.h"
#include "windows/automation_double.h"

namespace vornalux {
namespace {

using play::ImportPatch;
using test::AutomationDouble;

// The program on a simulated machine with the system's own shell and registry.
class Shell : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("VORNALUX_TEST_DRIVES") == nullptr) GTEST_SKIP() << "no system of our own";
    machine_.AddVolume('C', volume_);
    program_ = std::make_unique<Program>(machine_.With(machine_.User(), objects_, registry_));
    program_->launcher.SelectDrive("C:\\");
    program_->main_window.OpenMenu();
  }

  SimulatedVolume volume_{{.total_clusters = 100}};
  SimulatedPlatform machine_;
  WindowsShellObjects objects_;
  WindowsRegistry registry_;
  std::unique_ptr<Program> program_;
};

TEST_F(Shell, ShortcutsAreWrittenAndFound) {
  cShortcut shortcut(objects_);
  ASSERT_FALSE(shortcut.CreateShortcut("mine", {.target = "%WINDIR%\\x.exe"}, "desktop").Failed());
  EXPECT_TRUE(shortcut.LinkExists("mine"));
  ASSERT_FALSE(shortcut.CreateInternetShortcut("page", " a.b/c ", "web").Failed());
  EXPECT_TRUE(shortcut.URLExists("page"));
  EXPECT_FALSE(shortcut.URLExists("mine"));
  EXPECT_TRUE(shortcut.CreateShortcutAt("a", {.target = "b"}, "Q:\\no\\folder").Failed());
}

TEST_F(Shell, TextFilesAndTheEnvironment) {
  const std::string path = objects_.ExpandEnvironment("%TEMP%\\vornalux.url");
  ASSERT_EQ(objects_.WriteTextFile(path, "a longer text"), error::kSuccess);
  ASSERT_EQ(objects_.WriteTextFile(path, "é\r\n"), error::kSuccess);
  std::FILE* const file = _wfopen(ToWide(path).c_str(), L"rb");
  ASSERT_NE(file, nullptr);
  char bytes[16] = {};
  const std::size_t size = std::fread(bytes, 1, sizeof bytes, file);
  std::fclose(file);
  EXPECT_EQ(std::string(bytes, size), ToAnsi("é\r\n"));
  EXPECT_TRUE(objects_.FileExists(path));
  EXPECT_FALSE(objects_.FileExists(objects_.ExpandEnvironment("%TEMP%")));
  EXPECT_NE(objects_.WriteTextFile("Q:\\x", ""), error::kSuccess);
  ASSERT_EQ(objects_.WriteUnicodeFile(path, "漢"), error::kSuccess);
  std::string text;
  ASSERT_EQ(WindowsFiles().ReadBytes(path, text), error::kSuccess);
  EXPECT_EQ(text, "\xEF\xBB\xBF漢");
  EXPECT_EQ(objects_.ExpandEnvironment("%NO_SUCH% 漢%"), "%NO_SUCH% 漢%");
  SetEnvironmentVariableW(L"LONG", std::wstring(5000, L'é').c_str());
  EXPECT_EQ(objects_.ExpandEnvironment("%LONG%").size(), 10000U);
}

TEST_F(Shell, AFolderIsAskedForByItsName) {
  const ImportPatch patch("CoCreateInstance", AutomationDouble::Create);
  const auto make = [this](const char* folder) {
    return cShortcut(objects_).CreateShortcut("n", {.target = "t", .arguments = "a"}, folder);
  };
  EXPECT_FALSE(make("Templates").Failed());
  EXPECT_EQ(AutomationDouble::heard,
            L"CreateShortcut(X:\\n.lnk) TargetPath=t Arguments=a WindowStyle=1 Save() ");
  EXPECT_EQ(make("Fonts").description, "no such folder");
  EXPECT_EQ(AutomationDouble::alive, 0);
}

HRESULT WINAPI NoClass(LPCOLESTR, LPCLSID) { return REGDB_E_CLASSNOTREG; }

TEST_F(Shell, WithoutAScriptHostTheUserIsTold) {
  const ImportPatch patch("CLSIDFromProgID", NoClass);
  machine_.User().Type("job");
  program_->launcher.Command2.Click();
  ASSERT_EQ(machine_.User().Boxes().size(), 1U);
  EXPECT_EQ(machine_.User().Boxes()[0].text,
            "Desktop shortcut 'job' could not be created.\r\n"
            "The Windows Script Host is not installed or has been switched off.");
}

TEST_F(Shell, ValuesOfAnyLengthAreRead) {
  modReg keys(registry_, machine_.User());
  const std::string long_text(100000, 'x');
  keys.WriteString(kClassesRoot, "Vornalux.test", "é", long_text);
  EXPECT_EQ(keys.ReadString(kClassesRoot, "Vornalux.test", "é"), long_text);
  keys.WriteString(kClassesRoot, "Vornalux.test", "", "short");
  EXPECT_EQ(keys.ReadString(kClassesRoot, "Vornalux.test", ""), "short");
  keys.DeleteKeyTree(kClassesRoot, "Vornalux.test");
  EXPECT_EQ(keys.ReadString(kClassesRoot, "Vornalux.test", ""), "");
  keys.DeleteKeyTree(kClassesRoot, "Drive\\no\\such");
  EXPECT_EQ(machine_.User().Boxes().size(), 1U);
}

TEST(CommandLine, TheTailFollowsTheProgramsOwnPath) {
  const std::wstring program = L"C:\\Program Files\\V x\\Vornalux.exe";
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"\"C:\\Program Files\\V x\\Vornalux.exe\" /d  /c", L"/d  /c"},
      {L"C:\\Program Files\\V x\\Vornalux.exe /d /dir \"C:\\a b\"", L"/d /dir \"C:\\a b\""},
      {L"c:\\program files\\v X\\VORNALUX.EXE\t/o", L"/o"},
      {L"C:\\Program Files\\V x\\Vornalux /o", L"/o"},
      {L"C:\\Program Files\\V x\\Vornalux.exe", L""},
      {L"C:\\Program Files\\V x\\Vornalux.exe2 /o", L"Files\\V x\\Vornalux.exe2 /o"},
      {L"vornalux /o /close", L"/o /close"},
      {L"C:\\PROGRA~1\\VX\\vornalux.exe   /o ", L"/o "},
      {L"\"unclosed /o", L""},
      {L"", L""}};
  for (const auto& [line, tail] : cases) {
    EXPECT_EQ(CommandLineTail(line, program), tail) << FromWide(line);
  }
}

}  // namespace
}  // namespace vornalux
