// SPDX-License-Identifier: GPL-2.0-or-later
// Shortcuts and Explorer's menus, in the shell and the registry that Wine has.
#include "host/windows/system_headers.h"

// After the header that they need.
#include <shlobj.h>

#include <array>
#include <string>
#include <vector>

#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

struct Link {
  std::wstring target, arguments;
};

// False when there is no such file.
bool ReadLink(const std::wstring& path, Link& out) {
  CoInitialize(nullptr);
  IShellLinkW* link = nullptr;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                   reinterpret_cast<void**>(&link));
  IPersistFile* file = nullptr;
  link->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file));
  const bool loaded = SUCCEEDED(file->Load(path.c_str(), STGM_READ));
  if (loaded) {
    wchar_t text[1024] = {};
    link->GetPath(text, 1024, nullptr, SLGP_RAWPATH);
    out.target = text;
    link->GetArguments(text, 1024);
    out.arguments = text;
  }
  file->Release();
  link->Release();
  return loaded;
}

// Of the program, with a backslash at its end.
std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring text = path;
  return text.substr(0, text.rfind(L'\\') + 1);
}

FLOW(JobBecomesAShortcut, "", Alone) {
  const Screen& screen = StartToTheLauncher(session);
  const HWND launcher = screen.Launcher();
  OpenOptions(screen);
  screen.Press(launcher, IDC_ACTION_OPTIMIZE);
  screen.Press(launcher, IDC_MINIMIZED);
  screen.Until("a job", [&] { return Screen::Text(launcher, IDC_SHORTCUT).ends_with("/min"); });
  wchar_t desktop[MAX_PATH] = {};
  SHGetSpecialFolderPathW(nullptr, desktop, CSIDL_COMMON_DESKTOPDIRECTORY, FALSE);

  screen.Press(launcher, IDC_SHORTCUT);
  screen.UntilShown("the question for a name", &Screen::Input);
  EXPECT_EQ(Screen::Text(screen.Input()), "Enter Shortcut Title");
  EXPECT_EQ(Screen::Text(screen.Input(), IDC_INPUT_PROMPT),
            "Enter Title for This Desktop Shortcut:");
  EXPECT_EQ(Screen::Text(screen.Input(), IDC_INPUT_TEXT), "Vornalux");
  screen.Press(screen.Input(), IDCANCEL);
  screen.Until("the question goes", [&] { return screen.Input() == nullptr; });

  screen.Press(launcher, IDC_SHORTCUT);
  screen.UntilShown("the question for a name", &Screen::Input);
  SetDlgItemTextW(screen.Input(), IDC_INPUT_TEXT, L"  Night run \x00E9  ");
  screen.Press(screen.Input(), IDOK);
  screen.Answer("Desktop shortcut 'Night run \u00E9' created.");
  Link link;
  ASSERT_TRUE(ReadLink(std::wstring(desktop) + L"\\Night run \x00E9.lnk", link));
  EXPECT_EQ(lstrcmpiW(link.target.c_str(), (ProgramFolder() + L"vornalux.exe").c_str()), 0);
  EXPECT_EQ(link.arguments, L"/drv C: /o /normal /min");
}

// The default value of a key below HKEY_CLASSES_ROOT; nothing when there is none.
std::string Command(const std::string& key) {
  char text[1024] = {};
  LONG size = sizeof text;
  return RegQueryValueA(HKEY_CLASSES_ROOT, key.c_str(), text, &size) == ERROR_SUCCESS ? text : "";
}

// The verbs of the program that drives and folders have, known by their first word.
std::size_t Verbs() {
  std::size_t verbs = 0;
  for (const char* parent : {"Drive\\shell", "Directory\\shell"}) {
    HKEY key;
    RegCreateKeyA(HKEY_CLASSES_ROOT, parent, &key);
    char name[256];
    for (DWORD i = 0; RegEnumKeyA(key, i, name, sizeof name) == ERROR_SUCCESS; ++i) {
      verbs += std::string(name).starts_with("Vornalux");
    }
    RegCloseKey(key);
  }
  return verbs;
}

FLOW(VerbsAreWrittenShownAndRemoved, "-setshell", Alone) {
  // As an earlier run of the program would have left it.
  RegSetValueA(HKEY_CLASSES_ROOT, "Drive\\shell\\Vornalux Optimize\\command", REG_SZ, "old", 3);
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the settings", &Screen::Context);
  EXPECT_FALSE(Screen::Shown(screen.Launcher()));
  EXPECT_FALSE(Screen::Shown(screen.Main()));
  const HWND settings = screen.Context();
  const auto checked = [&](int index) {
    return IsDlgButtonChecked(settings, IDC_CONTEXT_CHECK + index) == BST_CHECKED;
  };
  for (int i = 0; i < 6; ++i) EXPECT_EQ(checked(i), i == 4) << i;

  for (const int i : {0, 3, 5}) screen.Press(settings, IDC_CONTEXT_CHECK + i);
  screen.Press(settings, IDC_CONTEXT_APPLY);
  screen.Until("the last command", [&] {
    return !Command("Drive\\shell\\Vornalux Optimize Shutdown\\command").empty();
  });
  SendMessageW(settings, WM_NULL, 0, 0);
  const std::string program = FromWide(ProgramFolder()) + "Vornalux.exe ";
  EXPECT_EQ(Command("Directory\\shell\\Vornalux Defrag\\command"), program + "/d /dir \"%1\"");
  EXPECT_EQ(Command("Drive\\shell\\Vornalux Defrag Background\\command"),
            program + "/min /close /d /drv %1");
  EXPECT_EQ(Command("Drive\\shell\\Vornalux Optimize\\command"), program + "/o /drv %1");
  EXPECT_EQ(Command("Drive\\shell\\Vornalux Optimize Shutdown\\command"),
            program + "/down /o /drv %1");
  EXPECT_EQ(Verbs(), 4u);

  for (const int i : {0, 3, 4, 5}) screen.Press(settings, IDC_CONTEXT_CHECK + i);
  screen.Press(settings, IDC_CONTEXT_OK);
  EXPECT_EQ(session.End(), 0u);
  EXPECT_EQ(Verbs(), 0u);
}

}  // namespace
}  // namespace vornalux::play
