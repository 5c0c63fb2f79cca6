// SPDX-License-Identifier: GPL-2.0-or-later
// Shortcuts and verbs as the system keeps them: written by the program's own buttons, read back by
// the system's own calls.
#include <gtest/gtest.h>

#include <cstdlib>

#include "app/program.h"
#include "app/shortcut.h"
#include "host/simulated/simulated_platform.h"
#include "host/windows/command_line.h"
#include "host/windows/windows_registry.h"
#include "host/windows/windows_shell_objects.h"
#include "host/windows/windows_text.h"
#include "windows/automation_double.h"
#include "windows/import_patch.h"

// After the ones that they need.
#include <shlobj.h>

namespace vornalux {
namespace {

using test::AutomationDouble;
using test::ImportPatch;

template <typename Function>
void* Address(Function* function) {
  return reinterpret_cast<void*>(function);
}

// The program on a simulated machine with the system's own shell and registry.
class Shell : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("VORNALUX_TEST_DRIVES") == nullptr) GTEST_SKIP() << "no system of our own";
    machine_.AddVolume('C', volume_);
    program_ = std::make_unique<Program>(machine_.With(machine_.User(), objects_, registry_));
    program_->launcher.SelectDrive("C:\\");
  }

  SimulatedVolume volume_{{.total_clusters = 100}};
  SimulatedPlatform machine_;
  WindowsShellObjects objects_;
  WindowsRegistry registry_;
  std::unique_ptr<Program> program_;
};

// "target|arguments|folder|icon,index"; "no link" when there is none.
std::wstring ReadLink(const std::wstring& path) {
  CoInitialize(nullptr);
  std::wstring text = L"no link";
  IShellLinkW* link = nullptr;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                   reinterpret_cast<void**>(&link));
  IPersistFile* file = nullptr;
  link->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file));
  if (SUCCEEDED(file->Load(path.c_str(), STGM_READ))) {
    wchar_t target[300] = L"", arguments[300] = L"", folder[300] = L"", icon[300] = L"";
    int index = -1;
    link->GetPath(target, 300, nullptr, 0);
    link->GetArguments(arguments, 300);
    link->GetWorkingDirectory(folder, 300);
    link->GetIconLocation(icon, 300, &index);
    text = std::wstring(target) + L"|" + arguments + L"|" + folder + L"|" + icon + L"," +
           std::to_wstring(index);
  }
  file->Release();
  link->Release();
  CoUninitialize();
  return text;
}

std::wstring AllUsersDesktop() {
  wchar_t path[MAX_PATH] = L"";
  SHGetFolderPathW(nullptr, CSIDL_COMMON_DESKTOPDIRECTORY, nullptr, 0, path);
  return path;
}

TEST_F(Shell, TheJobShortcutIsWhatTheButtonSays) {
  Introfrm& launcher = program_->launcher;
  launcher.Option3.Click();
  const ProgramFile place = objects_.ProgramPlace();
  wchar_t own[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, own, MAX_PATH);
  EXPECT_EQ(ToWide(place.folder + "\\" + place.name + ".exe"), own);
  const std::wstring folder = ToWide(place.folder) + L"\\";
  const std::wstring file = AllUsersDesktop() + L"\\Größe 漢.lnk";
  for (const char* const job : {"/drv C: /o /normal", "/drv C: /o /normal /vssafe"}) {
    machine_.User().Type(" Größe 漢 ");
    launcher.Command2.Click();
    EXPECT_EQ(machine_.User().Boxes().back().text, "Desktop shortcut 'Größe 漢' created.");
    EXPECT_EQ(ReadLink(file), own + (L"|" + ToWide(job)) + L"|" + folder + L"|" + own + L",0");
    launcher.VSS_Command.Click();
  }
  cShortcut shortcut(objects_);
  EXPECT_FALSE(shortcut.LinkExists("Größe 漢")) << "on another desktop";
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
  EXPECT_EQ(objects_.ExpandEnvironment("%NO_SUCH% 漢%"), "%NO_SUCH% 漢%");
  SetEnvironmentVariableW(L"LONG", std::wstring(5000, L'é').c_str());
  EXPECT_EQ(objects_.ExpandEnvironment("%LONG%").size(), 10000U);
}

// The system's own answer to fourteen of the names is an error here.
TEST_F(Shell, EachFolderIsAskedForByItsName) {
  const ImportPatch patch("CoCreateInstance", Address(&AutomationDouble::Create));
  const char* const names[] = {"AllUsersDesktop",  "AllUsersStartMenu",
                               "AllUsersPrograms", "AllUsersStartup",
                               "AppData",          "Desktop",
                               "Favorites",        "Fonts",
                               "MyDocuments",      "NetHood",
                               "PrintHood",        "Programs",
                               "Recent",           "SendTo",
                               "StartMenu",        "Startup",
                               "Templates"};
  for (const char* name : names) {
    AutomationDouble::folders = {{ToWide(name), L"X:\\" + ToWide(name)}};
    AutomationDouble::heard.clear();
    cShortcut(objects_).CreateShortcut("n", {.target = "t", .arguments = "a"}, name);
    EXPECT_EQ(AutomationDouble::heard, L"CreateShortcut(X:\\" + ToWide(name) +
                                           L"\\n.lnk) TargetPath=t Arguments=a WindowStyle=1 "
                                           L"Save() ");
    AutomationDouble::folders.clear();
    const ShellResult result = cShortcut(objects_).CreateShortcut("n", {.target = "t"}, name);
    EXPECT_EQ(result.description, "no such folder");
  }
  EXPECT_EQ(AutomationDouble::alive, 0);
}

HRESULT WINAPI NoClass(LPCOLESTR, LPCLSID) { return REGDB_E_CLASSNOTREG; }

TEST_F(Shell, WithoutAScriptHostTheUserIsTold) {
  const ImportPatch patch("CLSIDFromProgID", Address(&NoClass));
  machine_.User().Type("job");
  program_->launcher.Command2.Click();
  ASSERT_EQ(machine_.User().Boxes().size(), 1U);
  EXPECT_EQ(machine_.User().Boxes()[0].text,
            "Desktop shortcut 'job' could not be created.\r\n"
            "The Windows Script Host is not installed or has been switched off.");
}

// All keys and values below a key of HKEY_CLASSES_ROOT.
std::wstring DumpKey(HKEY root, const std::wstring& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return L"";
  std::wstring text = path + L"\n";
  wchar_t name[300];
  wchar_t data[300];
  for (DWORD i = 0;; ++i) {
    DWORD name_size = 300;
    DWORD size = sizeof data;
    DWORD type = 0;
    if (RegEnumValueW(key, i, name, &name_size, nullptr, &type, reinterpret_cast<BYTE*>(data),
                      &size) != ERROR_SUCCESS) {
      break;
    }
    text += L" " + std::wstring(name) + L"=" + std::to_wstring(type) + L":" +
            std::wstring(data, size / sizeof(wchar_t) - 1) + L"\n";
  }
  for (DWORD i = 0;; ++i) {
    DWORD name_size = 300;
    if (RegEnumKeyExW(key, i, name, &name_size, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    text += DumpKey(root, path + L"\\" + name);
  }
  RegCloseKey(key);
  return text;
}

std::wstring Menus() {
  return DumpKey(HKEY_CLASSES_ROOT, L"Directory") + DumpKey(HKEY_CLASSES_ROOT, L"Drive");
}

TEST_F(Shell, VerbsAreWrittenShownAndRemoved) {
  modReg keys(registry_, machine_.User());
  for (const char* menu : {"Directory", "Drive"}) {
    keys.WriteString(kClassesRoot, std::string(menu) + "\\shell\\other", "", "Other");
  }
  const std::wstring before = Menus();
  frmContext& window = program_->launcher.context_menu;
  window.Open();
  for (CheckBox& box : window.Check1) {
    EXPECT_FALSE(box.value);
    box.Click();
  }
  window.cmdApply.Click();
  const std::string exe = objects_.ProgramPlace().folder + "\\Vornalux.exe ";
  const std::pair<const wchar_t*, const char*> verbs[] = {
      {L"Directory\\shell\\Vornalux Defrag", "/d /dir \"%1\""},
      {L"Directory\\shell\\Vornalux Defrag Background", "/min /close /d /dir \"%1\""},
      {L"Drive\\shell\\Vornalux Defrag", "/d /drv %1"},
      {L"Drive\\shell\\Vornalux Defrag Background", "/min /close /d /drv %1"},
      {L"Drive\\shell\\Vornalux Optimize", "/o /drv %1"},
      {L"Drive\\shell\\Vornalux Optimize Shutdown", "/down /o /drv %1"}};
  for (const auto& [key, job] : verbs) {
    const std::wstring verb = key;
    EXPECT_EQ(DumpKey(HKEY_CLASSES_ROOT, verb),
              verb + L"\n" + verb + L"\\command\n =1:" + ToWide(exe + job) + L"\n");
  }
  program_->launcher.process_cmd_line("/setshell");
  for (CheckBox& box : window.Check1) {
    EXPECT_TRUE(box.value);
    box.Click();
  }
  keys.WriteString(kClassesRoot, "Drive\\shell\\Vornalux Defrag\\a\\b\\c", "v", "deep");
  window.cmdOK.Click();
  EXPECT_EQ(Menus(), before);
  EXPECT_EQ(machine_.User().Boxes().size(), 0U);
  keys.DeleteKeyTree(kClassesRoot, "Drive\\no\\such");
  EXPECT_EQ(machine_.User().Boxes().size(), 1U);
}

TEST_F(Shell, ValuesOfAnyLengthAreRead) {
  modReg keys(registry_, machine_.User());
  const std::string long_text(100000, 'x');
  keys.WriteString(kClassesRoot, "Vornalux.test", "é", long_text);
  EXPECT_EQ(keys.ReadString(kClassesRoot, "Vornalux.test", "é"), long_text);
  keys.WriteString(kClassesRoot, "Vornalux.test", "", "short");
  EXPECT_EQ(keys.ReadString(kClassesRoot, "Vornalux.test", ""), "short");
  keys.DeleteKeyTree(kClassesRoot, "Vornalux.test");
  EXPECT_EQ(DumpKey(HKEY_CLASSES_ROOT, L"Vornalux.test"), L"");
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
