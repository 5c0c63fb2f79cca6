// SPDX-License-Identifier: GPL-2.0-or-later
// The launcher, and what may keep the program from getting so far.
#include "host/windows/system_headers.h"

// After the header that it needs.
#include <commctrl.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <vector>

#include "host/windows/ui/resource.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

using Texts = std::vector<std::string>;

FLOW(ListsTheDrives, "", WithCheckLibrary) {
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the launcher", &Screen::Launcher);
  const HWND launcher = screen.Launcher();
  EXPECT_EQ(Screen::Items(GetDlgItem(launcher, IDC_VOLUMES)),
            (Texts{"A:\\  Removable disk  [FLOPPY]  Status: Ok",
                   "C:\\  Fixed disk  [System]  Status: Ok", "D:\\  Fixed disk  [DATA]  Status: Ok",
                   "E:\\    ", "R:\\  Fixed disk  [Archive]  Status: Error!"}));
  EXPECT_EQ(SendMessageW(GetDlgItem(launcher, IDC_VOLUMES), CB_GETCURSEL, 0, 0), 1);
  EXPECT_FALSE(Screen::Shown(screen.Main()));
  EXPECT_EQ(SetErrorMode(0), UINT{SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX});
  EXPECT_EQ(screen.Vetoes(), "");
  SendMessageW(launcher, WM_ENDSESSION, FALSE, 0);
  EXPECT_TRUE(Screen::Shown(launcher)) << "the session goes on";
  SendNotifyMessageW(launcher, WM_ENDSESSION, TRUE, 0);
  EXPECT_EQ(session.End(), 0u);
}

FLOW(OptionsMakeTheJobLine, "", Alone) {
  const Screen& screen = StartToTheLauncher(session);
  const HWND launcher = screen.Launcher();
  OpenOptions(screen);
  const auto line = [&] { return Screen::Text(launcher, IDC_SHORTCUT); };
  const auto press = [&](int id, const std::string& job) {
    screen.Press(launcher, id);
    screen.Until(job, [&] { return line() == "Create desktop shortcut Job " + job; });
  };
  screen.Choose(launcher, IDC_VOLUMES, 2);
  screen.Until("drive D:", [&] { return line().ends_with("/drv D: /d /normal"); });
  press(IDC_THOROUGH, "/drv D: /d /t /normal");
  press(IDC_ACTION_OPTIMIZE, "/drv D: /o /normal");
  EXPECT_FALSE(IsWindowEnabled(GetDlgItem(launcher, IDC_THOROUGH)));
  press(IDC_PRIORITY_HIGH, "/drv D: /o /high");
  EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), DWORD{ABOVE_NORMAL_PRIORITY_CLASS});
  press(IDC_MINIMIZED, "/drv D: /o /high /min");
  screen.Press(launcher, IDC_WHEN_DONE);
  screen.Until("after-run choices",
               [&] { return IsWindowEnabled(GetDlgItem(launcher, IDC_AFTER_SHUTDOWN)) != FALSE; });
  press(IDC_AFTER_SHUTDOWN, "/drv D: /o /high /min /down");
  press(IDC_VSS_JOB, "/drv D: /o /high /min /down /vssafe");
  press(IDC_WHEN_DONE, "/drv D: /o /high /min /vssafe");

  screen.Press(launcher, IDC_INFO);
  screen.Until("a page", [&] { return !session.machine.pages.empty(); });
  EXPECT_TRUE(session.machine.pages[0].starts_with("https://")) << session.machine.pages[0];
}

void EndsWith(Session& session, const char* text) {
  session.Start();
  session.screen.Answer(text);
  session.End();
  EXPECT_FALSE(Screen::Shown(session.screen.Launcher()));
}

FLOW(RefusesAnyoneButAdministrators, "", Alone) {
  session.machine.administrator = 2;
  EndsWith(session, "no admin");
}

FLOW(RefusesWindows2000, "/drv C: /d", Alone) {
  session.machine.windows_2000 = true;
  EndsWith(session,
           "Vornalux requires Windows XP or higher (2003 server, Vista) to run.\r\n"
           "The detected Windows version does not meet the minimum requirements.\r\n\r\n"
           "The program will now terminate.");
}

// Every dialog of the program, at whatever resolution it was started with.
std::array<HWND, 6> Dialogs(const Screen& screen) {
  return {screen.Launcher(), screen.Main(),    screen.Details(),
          screen.Debug(),    screen.Warning(), screen.Context()};
}

// Broken into lines where the control has room for several.
SIZE SizeOfText(HWND control, const RECT& room) {
  const HDC dc = CreateCompatibleDC(nullptr);
  SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
  wchar_t text[512] = {};
  GetWindowTextW(control, text, 511);
  RECT area = {};
  DrawTextW(dc, text, -1, &area, DT_CALCRECT | DT_SINGLELINE);
  if (2 * area.bottom <= room.bottom - room.top) {
    area.right = room.right - room.left;
    DrawTextW(dc, text, -1, &area, DT_CALCRECT | DT_WORDBREAK);
  }
  DeleteDC(dc);
  return {area.right, area.bottom};
}

// Captions that are cut off or lie over each other are what resolutions bring about.
void EverythingFits(Session& session) {
  const Screen& screen = StartToTheLauncher(session);
  SIZE size;
  const std::vector<std::uint32_t> glyph = Screen::Picture(screen.Main(), IDC_REDRAW, size);
  double ink = 0;
  for (const std::uint32_t pixel : glyph) ink += pixel / static_cast<double>(0x004000);
  EXPECT_NEAR(ink / static_cast<double>(glyph.size()), 0.3, 0.06) << "of the redraw glyph";
  EXPECT_TRUE(std::equal(glyph.begin(), glyph.end(), glyph.rbegin())) << "two arrows, one turned";
  screen.Press(screen.Launcher(), IDC_SELECT);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  screen.Menu(IDM_THOROUGH);  // as wide as it gets
  screen.Until("its mark", [&] { return screen.MenuChecked(IDM_THOROUGH); });
  SendMessageW(screen.Main(), WM_NULL, 0, 0);  // all of it
  RECT first, last;
  GetMenuItemRect(screen.Main(), GetMenu(screen.Main()), 0, &first);
  GetMenuItemRect(screen.Main(), GetMenu(screen.Main()), 9, &last);
  EXPECT_EQ(first.top, last.top) << "the menu's bar has room for one row";
  EXPECT_LT(last.left, last.right);
  for (const HWND dialog : Dialogs(screen)) {
    RECT inside;
    GetClientRect(dialog, &inside);
    std::vector<RECT> taken;
    for (const HWND child : Screen::Children(dialog)) {
      const int id = GetDlgCtrlID(child);
      RECT area;
      GetWindowRect(child, &area);
      MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&area), 2);
      const std::string name =
          Screen::Text(dialog) + " " + std::to_string(id) + " \"" + Screen::Text(child) + "\"";
      const bool grouping = (GetWindowLongW(child, GWL_STYLE) & BS_TYPEMASK) == BS_GROUPBOX;
      const bool label = Screen::Kind(child) == L"Static";
      const bool button = Screen::Kind(child) == L"Button";
      if (id < IDC_JOB_FIRST || id > IDC_JOB_LAST) {  // those may be folded away
        EXPECT_LE(area.right, inside.right) << name;
        EXPECT_LE(area.bottom, inside.bottom) << name;
      }
      // The status line and the long job line are cut on purpose.
      const bool free_text = id == IDC_STATUS_LINE || id == IDC_SHORTCUT;
      if ((label || button) && !free_text && !Screen::Text(child).empty()) {
        const LONG box = button && !grouping && id != IDC_SELECT && id != IDC_MORE
                             ? GetSystemMetrics(SM_CXMENUCHECK)
                             : 0;
        EXPECT_LE(SizeOfText(child, area).cx + box, area.right - area.left) << name;
        EXPECT_LE(SizeOfText(child, area).cy, area.bottom - area.top + 2) << name;
      }
      if (grouping || Screen::Text(child).empty()) continue;
      for (const RECT& other : taken) {
        RECT common;
        EXPECT_FALSE(IntersectRect(&common, &area, &other)) << name << " lies over another";
      }
      taken.push_back(area);
    }
  }
}

const FlowRegistration at_96({"EverythingFitsAt96", "", Place::Alone, EverythingFits, 96});
const FlowRegistration at_120({"EverythingFitsAt120", "", Place::Alone, EverythingFits, 120});
const FlowRegistration at_144({"EverythingFitsAt144", "", Place::Alone, EverythingFits, 144});
const FlowRegistration at_192({"EverythingFitsAt192", "", Place::Alone, EverythingFits, 192});

// What can be reached by Tab and arrows is what a keyboard alone can use.
FLOW(NothingNeedsAMouse, "", Alone) {
  const Screen& screen = StartToTheLauncher(session);
  const HWND launcher = screen.Launcher();
  screen.Choose(launcher, IDC_VOLUMES, 2);  // chooses among the options as well
  screen.Until("drive D:", [&] {
    return Screen::Text(launcher, IDC_SHORTCUT).ends_with("/drv D: /d /normal");
  });
  for (int id = IDC_JOB_FIRST; id <= IDC_JOB_LAST; ++id) {
    EXPECT_FALSE(Screen::Shown(GetDlgItem(launcher, id))) << id;
    EXPECT_FALSE(IsWindowEnabled(GetDlgItem(launcher, id))) << id << " takes its letter";
  }
  OpenOptions(screen);
  EXPECT_FALSE(IsWindowEnabled(GetDlgItem(launcher, IDC_AFTER_CLOSE)));
  for (const HWND dialog : Dialogs(screen)) {
    std::set<HWND> stops, reached;
    for (HWND at = GetNextDlgTabItem(dialog, nullptr, FALSE);
         at != nullptr && stops.insert(at).second; at = GetNextDlgTabItem(dialog, at, FALSE)) {
      // Arrows go round in a group.
      for (HWND other = at; other != nullptr && reached.insert(other).second;) {
        other = GetNextDlgGroupItem(dialog, other, FALSE);
      }
    }
    for (const HWND child : Screen::Children(dialog)) {
      const LONG type = GetWindowLongW(child, GWL_STYLE) & BS_TYPEMASK;
      const bool usable = Screen::Kind(child) == L"Edit" ||
                          Screen::Kind(child) == L"ComboBoxEx32" ||
                          Screen::Kind(child) == L"SysListView32" ||
                          (Screen::Kind(child) == L"Button" && type != BS_GROUPBOX);
      if (!usable || !IsWindowEnabled(child) || !IsWindowVisible(child)) continue;
      EXPECT_TRUE(stops.contains(child) || reached.contains(child))
          << Screen::Text(dialog) << " " << GetDlgCtrlID(child);
    }
  }
  // Folded away under it, the keyboard is elsewhere.
  SendMessageW(launcher, WM_NEXTDLGCTL,
               reinterpret_cast<WPARAM>(GetDlgItem(launcher, IDC_ACTION_DEFRAG)), TRUE);
  const auto focus = [&screen] {
    GUITHREADINFO info = {};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(screen.thread(), &info);
    return GetDlgCtrlID(info.hwndFocus);
  };
  EXPECT_EQ(focus(), IDC_ACTION_DEFRAG);
  screen.Press(launcher, IDC_MORE);
  screen.Until("folded", [&] { return Screen::Text(launcher, IDC_MORE) == "More >>"; });
  SendMessageW(launcher, WM_NULL, 0, 0);
  EXPECT_TRUE(IsWindowVisible(GetDlgItem(launcher, focus()))) << focus();
}

// With the mouse over an item, and given up or taken by a key.
FLOW(TheDriveShownIsTheOneChosen, "", Alone) {
  const Screen& screen = StartToTheLauncher(session);
  const HWND launcher = screen.Launcher(), drives = GetDlgItem(launcher, IDC_VOLUMES);
  COMBOBOXINFO list = {};
  list.cbSize = sizeof list;
  GetComboBoxInfo(reinterpret_cast<HWND>(SendMessageW(drives, CBEM_GETCOMBOCONTROL, 0, 0)), &list);
  for (const auto& [key, chosen] : {std::pair{VK_ESCAPE, "C:"}, {VK_RETURN, "A:"}}) {
    SendMessageW(list.hwndCombo, CB_SHOWDROPDOWN, TRUE, 0);
    SendMessageW(list.hwndList, WM_MOUSEMOVE, 0, MAKELPARAM(20, 5));
    EXPECT_EQ(SendMessageW(drives, CB_GETCURSEL, 0, 0), 0) << "under the mouse";
    SendMessageW(list.hwndCombo, WM_KEYDOWN, static_cast<WPARAM>(key), 1);
    const auto shown = static_cast<std::size_t>(SendMessageW(drives, CB_GETCURSEL, 0, 0));
    EXPECT_EQ(Screen::Items(drives).at(shown).substr(0, 2), chosen);
    EXPECT_TRUE(Screen::Text(launcher, IDC_SHORTCUT).ends_with(chosen + std::string(" /d /normal")))
        << Screen::Text(launcher, IDC_SHORTCUT);
  }
}

FLOW(SaysWhatItIs, "", Alone) {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::vector<std::uint8_t> block(GetFileVersionInfoSizeW(path, nullptr));
  ASSERT_TRUE(GetFileVersionInfoW(path, 0, static_cast<DWORD>(block.size()), block.data()));
  wchar_t* name = nullptr;
  UINT length = 0;
  VerQueryValueW(block.data(), L"\\StringFileInfo\\040904B0\\ProductName",
                 reinterpret_cast<void**>(&name), &length);
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::wstring(name), L"Vornalux");

  WIN32_FILE_ATTRIBUTE_DATA file = {};
  ASSERT_TRUE(GetFileAttributesExW(path, GetFileExInfoStandard, &file));
  EXPECT_LT(file.nFileSizeLow, DWORD{2} << 20);
  session.Start();
}

}  // namespace
}  // namespace vornalux::play
