// SPDX-License-Identifier: GPL-2.0-or-later
// What the program leaves with the shell: shortcuts, and verbs in context menus.
#include <tuple>

#include "app/shortcut.h"
#include "app/special_folder.h"
#include "text/ascii_case.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

const std::string kDesktop = "C:\\Users\\me\\Desktop";
const std::string kAllDesktop = "C:\\Users\\Public\\Desktop";

TEST(SpecialFolder, FindsNamesAndFallsBack) {
  ScriptedShell objects;
  std::unique_ptr<ScriptShell> shell;
  ASSERT_FALSE(objects.CreateScriptShell(shell).Failed());
  const auto find = [&](const std::string& name) {
    std::string folder = "left over";
    const ShellResult result = GetSpecialFolder(*shell, name, folder);
    return result.Failed() ? "failed" : folder;
  };
  for (const std::string name :
       {"AppData", "Desktop", "Favorites", "Fonts", "MyDocuments", "NetHood", "PrintHood",
        "Programs", "Recent", "SendTo", "StartMenu", "Startup", "Templates"}) {
    objects.folders[name] = "X:\\" + name;
    EXPECT_EQ(find(UpperCase(name)), "X:\\" + name);
  }
  EXPECT_EQ(find("QuickLaunch"), R"(X:\AppData\Microsoft\Internet Explorer\Quick Launch)");
  for (const std::string name : {"Desktop", "StartMenu", "Programs"}) {
    EXPECT_EQ(find("AllUsers" + name), "X:\\" + name);
  }
  objects.folders.erase("AppData");
  for (const char* name : {"", "NoSuch", "Desktop ", "AllUsersStartup", "quicklaunch"}) {
    EXPECT_EQ(find(name), "") << name;
  }
  objects.fails_at = "folder AllUsersDesktop";
  EXPECT_EQ(find("AllUsersDesktop"), "X:\\Desktop");
  objects.fails_at = "folder Desktop";
  EXPECT_EQ(find("AllUsersDesktop"), "failed");
}

TEST(Shortcut, SetsWhatIsNotEmptyInOrder) {
  ScriptedShell objects;
  objects.folders = {{"Desktop", kDesktop}};
  objects.environment = {{"%P%", "C:\\Program Files"}, {"%CUT%", std::string("ab\0cd", 5)}};
  {
    cShortcut shortcut(objects);
    EXPECT_EQ(objects.shells, 1) << "kept until the end";
    shortcut.CreateShortcut("all",
                            {.target = "%P%\\t.exe",
                             .arguments = "%CUT%",
                             .description = "%P%",
                             .working_directory = "%P%\\",
                             .icon_location = "%P%\\t.exe,0",
                             .window_style = 7},
                            "DESKTOP");
    shortcut.CreateShortcutAt("bare", {.target = ""}, "D:\\");
    EXPECT_TRUE(shortcut.LinkExists("all"));
    EXPECT_FALSE(shortcut.LinkExists("bare"));
    EXPECT_FALSE(shortcut.URLExists("all"));
  }
  EXPECT_EQ(objects.shells, 0);
  EXPECT_EQ(objects.files[kDesktop + "\\all.lnk"],
            "TargetPath=C:\\Program Files\\t.exe\nDescription=%P%\nArguments=ab\n"
            "WorkingDirectory=C:\\Program Files\\\nIconLocation=C:\\Program Files\\t.exe,0\n"
            "WindowStyle=7\n");
  EXPECT_EQ(objects.files["D:\\bare.lnk"], "TargetPath=\nWindowStyle=1\n");
}

TEST(Shortcut, OfTheInternet) {
  ScriptedShell objects;
  objects.folders = {{"Desktop", kDesktop}};
  cShortcut shortcut(objects);
  for (const auto& [address, kind, url] : {std::tuple{"  C:\\a b ", "FILE", "file://C:\\a b"},
                                           {" vornalux.example", "web", "http://vornalux.example"},
                                           {"https://x", "", "http://https://x"}}) {
    EXPECT_FALSE(shortcut.CreateInternetShortcut("page", address, kind).Failed());
    EXPECT_EQ(objects.files[kDesktop + "\\page.url"],
              std::string("[InternetShortcut]\r\nURL=") + url + "\r\n");
  }
  EXPECT_TRUE(shortcut.URLExists("page"));
  objects.fails_at = "write";
  EXPECT_TRUE(shortcut.CreateInternetShortcut("no", "x", "web").Failed());
}

// The launcher on drive C: with a program folder, whose shell has both desktops.
struct ShortcutRig {
  ShortcutRig() { shell.folders = {{"AllUsersDesktop", kAllDesktop}, {"Desktop", kDesktop}}; }
  // Types the title, if any, and returns what a box then says.
  std::string Press(const char* title) {
    const std::size_t before = user.Boxes().size();
    if (title) user.Type(title);
    rig.program.launcher.Command2.Click();
    if (user.Boxes().size() == before) return "";
    return user.Boxes().back().title + "|" + user.Boxes().back().text;
  }
  SmallRig rig;
  ScriptedShell& shell = rig.machine->Shell();
  ScriptedDesktop& user = rig.machine->User();
};

TEST(JobShortcut, BlanksMissingFoldersAndNamesThatAreTaken) {
  ShortcutRig test;
  for (const char* nothing : {static_cast<const char*>(nullptr), "", "   "}) {
    EXPECT_EQ(test.Press(nothing), "");
  }
  EXPECT_EQ(test.Press("  my job "), "Shortcut Created|Desktop shortcut 'my job' created.");
  test.rig.program.launcher.Option3.Click();
  test.Press("my job");
  EXPECT_EQ(test.shell.files.size(), 1U);
  EXPECT_EQ(test.shell.files[kAllDesktop + "\\my job.lnk"],
            "TargetPath=C:\\Program Files\\Vornalux\\vornalux.exe\n"
            "Arguments=/drv C: /o /normal\nWorkingDirectory=C:\\Program Files\\Vornalux\\\n"
            "IconLocation=C:\\Program Files\\Vornalux\\vornalux.exe,0\nWindowStyle=1\n");
  test.shell.folders.erase("AllUsersDesktop");
  test.Press("mine");
  EXPECT_TRUE(test.shell.FileExists(kDesktop + "\\mine.lnk"));
}

TEST(JobShortcut, AFailureIsOneClearMessage) {
  for (const char* step :
       {"create", "folder Desktop", "shortcut", "put TargetPath", "put WindowStyle", "save"}) {
    SCOPED_TRACE(step);
    ShortcutRig test;
    test.shell.folders = {{"Desktop", kDesktop}};
    test.shell.fails_at = step;
    EXPECT_EQ(test.Press("job"),
              "Vornalux|Desktop shortcut 'job' could not be created.\r\nAccess is denied.");
    test.shell.failure = {.error = error::kAccessDenied};
    EXPECT_NE(test.Press("job").find(test.rig.machine->ErrorText(error::kAccessDenied)),
              std::string::npos);
    EXPECT_EQ(test.shell.files.size() + static_cast<std::size_t>(test.shell.shells), 0U);
  }
  ShortcutRig test;
  for (const char* name : {"..\\up", "a/b", "C:x", "a?", "tab\there"}) {
    EXPECT_NE(test.Press(name).find("cannot be empty or contain"), std::string::npos) << name;
  }
  test.shell.folders.clear();
  EXPECT_NE(test.Press("job").find("does not exist"), std::string::npos);
  EXPECT_EQ(test.shell.files.size(), 0U);
}

struct ContextRig {
  ContextRig() {
    keys.Add("Directory\\shell");
    keys.Add("Drive\\shell");
    before = keys.Dump();
  }
  SmallRig rig;
  MemoryRegistry& keys = rig.machine->Keys();
  frmContext& window = rig.program.launcher.context_menu;
  modReg registry{keys, rig.machine->User()};
  std::string before;
};

TEST(ContextMenu, WritesReadsAndRemovesVerbs) {
  ContextRig test;
  MemoryRegistry all;
  const std::string exe = "C:\\Program Files\\Vornalux\\Vornalux.exe ";
  for (const auto& [key, job] :
       {std::pair{"Directory\\shell\\Vornalux Defrag", "/d /dir \"%1\""},
        {"Directory\\shell\\Vornalux Defrag Background", "/min /close /d /dir \"%1\""},
        {"Drive\\shell\\Vornalux Defrag", "/d /drv %1"},
        {"Drive\\shell\\Vornalux Defrag Background", "/min /close /d /drv %1"},
        {"Drive\\shell\\Vornalux Optimize", "/o /drv %1"},
        {"Drive\\shell\\Vornalux Optimize Shutdown", "/down /o /drv %1"}}) {
    all.Add(std::string(key) + "\\command", exe + job);
  }
  for (CheckBox& box : test.window.Check1) box.Click();
  bool ended = false;
  test.window.closed = [&ended] { ended = true; };
  test.window.cmdCancel.Click();
  EXPECT_TRUE(ended && !test.window.visible);
  EXPECT_EQ(test.keys.Dump(), test.before) << "nothing is written";

  test.window.Show();
  test.window.cmdApply.Click();
  EXPECT_TRUE(test.window.visible);
  EXPECT_EQ(test.keys.Dump(), all.Dump());
  test.window.Check1[1].Click();
  test.window.Check1[4].Click();
  test.window.cmdOK.Click();
  EXPECT_FALSE(test.window.visible);
  test.window.Open();
  std::string checked;
  for (const CheckBox& box : test.window.Check1) checked += box.value ? '1' : '0';
  EXPECT_EQ(checked, "101101") << "as the registry has it";
  for (CheckBox& box : test.window.Check1) box.value = false;
  test.window.cmdOK.Click();
  EXPECT_EQ(test.keys.Dump(), test.before) << "as it was";
  EXPECT_EQ(test.rig.Boxes(), std::vector<std::string>());
  EXPECT_EQ(test.keys.OpenKeys(), 0U);
}

TEST(ContextMenu, DeletingMeetsMissingParentsAndKeysThatStay) {
  ContextRig test;
  for (const char* below : {"", "\\a", "\\a\\b", "\\command", "\\z"}) {
    test.keys.Add(std::string("Drive\\shell\\v") + below, "text");
  }
  test.keys.Add("alone\\x");
  for (const char* key : {"Drive\\shell\\v\\", "Drive\\shell\\v", "", "alone"}) {
    test.registry.DeleteKeyTree(kClassesRoot, key);
  }
  EXPECT_EQ(test.keys.Dump(), test.before);
  EXPECT_EQ(test.rig.Boxes(), std::vector<std::string>());
  test.registry.DeleteKeyTree(kClassesRoot, "Missing\\shell\\v");
  EXPECT_EQ(test.rig.Boxes(), std::vector<std::string>{"Error opening parent key"});

  // What cannot be deleted stays, and ends.
  test.keys.Add("Drive\\shell\\v\\a\\b");
  const std::string with_verb = test.keys.Dump();
  const auto stays = [&](const char* what) {
    test.registry.DeleteKeyTree(kClassesRoot, "Drive\\shell\\v");
    EXPECT_EQ(test.keys.Dump(), with_verb) << what;
    test.keys.undeletable = test.keys.unopenable = {};
  };
  test.keys.undeletable = {"Drive\\shell\\v\\a\\b"};
  stays("undeletable");
  test.keys.unopenable = {"Drive\\shell\\v\\a"};
  stays("unopenable");
  test.keys.deletes_nothing = true;
  stays("says that it has deleted");
  EXPECT_LT(test.keys.key_enumerations, 60);
  EXPECT_EQ(test.keys.OpenKeys(), 0U);
  EXPECT_EQ(test.rig.Boxes().size(), 1U);
}

TEST(ContextMenu, ValuesAreFoundByNameAndCut) {
  ContextRig test;
  test.registry.WriteString(kClassesRoot, "a\\b\\c", "", "default");
  test.registry.WriteString(kClassesRoot, "a\\b\\c", "Name", std::string("x\0y", 3));
  for (const auto& [key, name, value] : {std::tuple{"a\\b\\c", "", "default"},
                                         {"A\\B\\C", "NAME", "x"},
                                         {"a\\b", "", ""},
                                         {"a\\x", "", ""}}) {
    EXPECT_EQ(test.registry.ReadString(kClassesRoot, key, name), value);
  }
}

}  // namespace
}  // namespace vornalux::testing
