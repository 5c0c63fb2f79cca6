// SPDX-License-Identifier: GPL-2.0-or-later
// What happens before and after runs: start-up and its refusals, the end of a session, the volume
// list and its check, sectors below the file system.
#include "app/start_up.h"

#include <algorithm>
#include <tuple>

#include "app/exit_windows.h"
#include "health/disk_check.h"
#include "support/noting_sink.h"
#include "unit/rig.h"
#include "volume/sector_io.h"

namespace vornalux::testing {
namespace {

// A system that says what the test wants, and notes what it is asked to do.
class FakeSystem final : public System {
 public:
  std::int32_t administrator = 1;
  bool says_version = true;
  SystemVersion version = {2, 6, 1, 7601, {}};
  std::string refused;
  std::string notes;

  std::int32_t AdministratorTest() override { return administrator; }
  bool Version(SystemVersion& out) override {
    if (says_version) out = version;
    return says_version;
  }
  bool IsWow64Process() override { return true; }
  bool EnablePrivilege(const std::string& name) override {
    notes += name + " ";
    return name != refused;
  }
  void InitCommonControls(std::uint32_t classes) override {
    notes += "controls " + std::to_string(classes) + " ";
  }
  void ExitWindows(std::uint32_t flags, std::uint32_t reason) override {
    notes += "exit " + std::to_string(flags) + " " + std::to_string(reason);
  }
};

// The program on a system to order.
struct StartRig {
  FakeSystem system;
  std::unique_ptr<SimulatedVolume> disk = SmallVolume(1);
  SimulatedPlatform machine;
  Platform platform{machine,         machine,        machine, machine, machine.User(),
                    machine.Shell(), machine.Keys(), system,  machine};
  Program program{platform};
  StartRig() { machine.AddVolume('C', *disk); }
};

TEST(StartUp, RefusesWhereItCannotWork) {
  struct Case {
    std::int32_t administrator;
    bool says_version;
    std::uint32_t major, minor;
    StartUpResult result;
    const char* box = nullptr;
  };
  using enum StartUpResult;
  const Case cases[] = {{0, true, 6, 1, NoAdministrator, "no admin"},
                        {-1, true, 6, 1, NoAdministrator, "no admin"},
                        {1, true, 5, 0, OldSystem, "requires Windows XP"},
                        {1, true, 4, 90, OldSystem, "\r\n\r\nThe program will now"},
                        {1, false, 6, 1, OldSystem, "does not meet"},
                        {1, true, 5, 1, Started},
                        {1, true, 10, 0, Started}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.major) + "." + std::to_string(c.minor));
    StartRig rig;
    rig.system.administrator = c.administrator;
    rig.system.says_version = c.says_version;
    rig.system.version = {2, c.major, c.minor, 0, {}};
    EXPECT_EQ(StartUp(rig.program, ""), c.result);
    EXPECT_EQ(rig.program.launcher.visible, c.box == nullptr);
    const std::vector<ShownBox>& boxes = rig.machine.User().Boxes();
    ASSERT_EQ(boxes.size(), c.box ? 1U : 0U);
    if (c.box) {
      EXPECT_NE(boxes[0].text.find(c.box), std::string::npos) << boxes[0].text;
      EXPECT_EQ(rig.system.notes + rig.program.debug_window.DBGTXT.text(), "")
          << "nothing is done any more";
    }
  }
}

TEST(StartUp, LogsWhatItRunsOnAndDoesTheJob) {
  StartRig rig;
  rig.system.refused = "SeRestorePrivilege";
  EXPECT_EQ(StartUp(rig.program, "/drv C: /d /down"), StartUpResult::Started);
  EXPECT_EQ(rig.program.debug_window.DBGTXT.text(),
            "OS= Win6.1\r\nIsWow64Process=True \r\nBackup privilege granted=True\r\n"
            "Restore privilege granted=False\r\n");
  EXPECT_EQ(rig.system.notes,
            "SeBackupPrivilege SeRestorePrivilege controls 512 SeShutdownPrivilege exit 12 "
            "4294967295");
  EXPECT_NE(rig.machine.Log().Count(CallKind::MoveClusters), 0U);
  EXPECT_FALSE(rig.program.debug_window.visible);
}

TEST(StartUp, NamesOfSystems) {
  const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, const char*> cases[] = {
      {0, 3, 1, "Win32s"},     {1, 4, 0, "Windows 95"}, {1, 4, 90, "Windows ME"},
      {2, 5, 1, "Windows XP"}, {2, 5, 2, "Windows NT"}, {2, 10, 0, "Windows NT"}};
  for (const auto& [platform, major, minor, name] : cases) {
    FakeSystem system;
    system.version = {platform, major, minor, 0x4650A28, std::string("SP 3\0junk", 9)};
    OsDescription os;
    GetOSName(system, os);
    EXPECT_EQ(os.name, name);
    EXPECT_EQ(os.service_pack + "|" + os.build, "SP 3|2600");
    system.says_version = false;
    system.version.major = 99;
    GetOSName(system, os);
    EXPECT_EQ(os.name, name) << "left as it was";
  }
}

TEST(ExitWindows, KnowsFourEnds) {
  for (const auto& [how, flags] : {std::pair{0, 4}, {1, 5}, {2, 7}, {8, 12}, {3, 0}, {-1, 0}}) {
    FakeSystem system;
    clsExitWindows(system).ExitWindows(static_cast<std::int16_t>(how));
    const std::string end = flags == 0 ? "" : "exit " + std::to_string(flags) + " 4294967295";
    EXPECT_EQ(system.notes, "SeShutdownPrivilege " + end);
  }
}

// Drives of every kind: C: is sound, D: dirty, A: and E: empty, F: a disc whose check fails.
struct Drives {
  Drives()
      : d({.total_clusters = 200, .file_system = "FAT32", .label = " DATA ", .dirty = true}),
        f({.total_clusters = 200, .file_system = "FAT", .label = "", .dirty = true}) {
    SimulatedPlatform& machine = *rig.machine;
    machine.AddDrive('A', drive_type::kRemovable);
    machine.AddVolume('D', d);
    machine.AddDrive('E', drive_type::kCdRom);
    machine.AddDrive('F', drive_type::kCdRom);
    machine.AddVolume('F', f);
    machine.AddDrive('N', drive_type::kNetwork);
    machine.AddDrive('R', drive_type::kRamDisk);
  }
  SimulatedVolume d;
  SimulatedVolume f;
  SmallRig rig{1, Chosen::None};
  Introfrm& launcher = rig.program.launcher;
};

TEST(Launcher, ListsTheVolumesThatCanBeWorkedOn) {
  Drives drives;
  drives.launcher.Introduction();
  const std::vector<std::string> expected = {
      "A:\\  Removable disk  []", "C:\\  Fixed disk  [SIMULATED]  Status: Ok",
      "D:\\  Fixed disk  [DATA]  Status: Error!", "E:\\    ", "F:\\    []"};
  EXPECT_EQ(drives.launcher.ImageCombo1.items(), expected);
  EXPECT_EQ(drives.rig.Boxes().size(), 0U) << "nothing stands before a start";
  EXPECT_EQ(drives.launcher.ImageCombo1.list_index.get(), 1) << "the first fixed disk";
  EXPECT_EQ(drives.rig.engine.volume.Target().file_system, "NTFS");
  EXPECT_EQ(drives.rig.machine->OpenHandles(), 1U) << "only the chosen volume";

  drives.launcher.ImageCombo1.Choose(3);
  drives.launcher.Introduction();
  EXPECT_EQ(drives.rig.engine.volume.Target().drive, "E:\\") << "a choice is kept";
}

// Whatever home page the build was given.
TEST(Launcher, LinksLeadToAPageOrSayThatThereIsNone) {
  Drives drives;
  std::vector<std::string> pages;
  drives.launcher.open_page = [&pages](const std::string& page) { pages.push_back(page); };
  for (Label* link : {&drives.launcher.lblInfo, &drives.launcher.LblSupport}) link->click();
  EXPECT_EQ(pages.size() + drives.rig.Boxes().size(), 2U);
  for (const std::string& page : pages) EXPECT_TRUE(page.starts_with("http")) << page;
}

TEST(Launcher, ChoosingADriveStartsTheOptionsAnew) {
  Drives drives;
  Introfrm& launcher = drives.launcher;
  const ChosenVolume& volume = drives.rig.engine.volume;
  launcher.Introduction();
  launcher.Option3.Click();
  launcher.OptPrioLow.Click();
  launcher.Chk_Thorough.value = true;
  drives.rig.window.thorough.Click();
  launcher.ImageCombo1.Choose(2);
  EXPECT_EQ(launcher.JobLine(), "/drv D: /d /normal");
  EXPECT_FALSE(drives.rig.window.thorough.checked || drives.rig.program.flags.Thorough);
  EXPECT_TRUE(launcher.Option1.value && launcher.OptPrioMed.value && !launcher.Option3.value);
  EXPECT_EQ(drives.rig.machine->PriorityClass(), priority::kNormal) << "as it is shown";
  EXPECT_EQ(volume.Target().file_system + " " + volume.Facts().boot_text, "FAT32 FAT32");
  launcher.ImageCombo1.Choose(4);
  EXPECT_EQ(volume.Facts().boot_text, "FAT16");
  launcher.ImageCombo1.Choose(3);
  EXPECT_EQ(volume.Target().file_system, "Ins\xC3\xA9rez un support");
  launcher.process_cmd_line("/drv E: /d");
  EXPECT_EQ(volume.Target().file_system, "FS_Error");
}

TEST(Launcher, SelectDriveOpensTheMainWindow) {
  for (const int index : {1, 2, 3}) {
    SCOPED_TRACE(index);
    Drives drives;
    Introfrm& launcher = drives.launcher;
    DefragWindow& window = drives.rig.window;
    launcher.CmdGo.Click();
    EXPECT_FALSE(window.visible) << "nothing chosen yet";
    launcher.Introduction();
    launcher.ImageCombo1.Choose(index);
    launcher.CmdJob.Click();
    const std::size_t boxes = drives.rig.Boxes().size();
    // The check's only event.
    ScriptedDesktop& user = drives.rig.machine->User();
    user.AtDoEvents(user.DoEventsCount() + 1, [&] {
      EXPECT_TRUE(launcher.visible && launcher.CmdCancel.visible && !window.visible);
      EXPECT_FALSE(window.Quitter.enabled || window.cmdDefrag.enabled);
      launcher.ImageCombo1.Choose(0);
      launcher.CmdGo.Click();
    });
    launcher.CmdGo.Click();
    EXPECT_FALSE(launcher.FrmJob.visible);
    const bool opens = index != 3;
    EXPECT_EQ(static_cast<bool>(window.visible), opens);
    EXPECT_EQ(static_cast<bool>(launcher.visible), !opens);
    EXPECT_EQ(static_cast<bool>(window.cmdDefrag.enabled), opens);
    EXPECT_EQ(launcher.ImageCombo1.list_index.get(), index);
    EXPECT_EQ(window.caption.get(), "Volume " + drives.rig.engine.volume.Target().drive);
    EXPECT_EQ(drives.rig.program.flags.VolumeDirty != False, index == 2);
    EXPECT_EQ(drives.rig.Boxes().size(), boxes + (index == 1 ? 0 : 1)) << "dirty, or not ready";
  }
}

// A check that plays back what it was given.
class FakeLibrary final : public CheckLibrary {
 public:
  bool there = true;
  bool in_use = false;
  std::vector<CheckMessage> messages;
  std::string notes;

  bool Load() override {
    notes += "load ";
    return there;
  }
  void Free() override { notes += "free"; }
  bool CanOpenForWriting(const std::string& path) override {
    notes += path + " ";
    return !in_use;
  }
  void Check(const std::string& root, const std::string& file_system,
             const DiskCheckOptions& options, const Callback& callback) override {
    notes += root + " " + file_system + (options.correct_errors ? " correct " : " ");
    for (const CheckMessage& message : messages) {
      if (!callback(message)) {
        notes += "stopped ";
        callback({.command = 11, .number = 0, .line = {}});
        return;
      }
    }
  }
};

TEST(DiskCheck, TellsTheSinkWhatTheLibrarySays) {
  const std::vector<CheckMessage> all = {{0, 5, {}},  {14, 0, "text"}, {14, 0, {}},
                                         {3, 77, {}}, {0, 100, {}},    {11, 1, {}}};
  struct Case {
    const char* root;
    bool there, correct, in_use, wants_end;
    const char *library, *sink;
  };
  const Case cases[] = {
      {"C:\\", true, false, false, false, "load C:\\ NTFS free", "5% text 100% good "},
      {"C:\\", true, false, false, true, "load C:\\ NTFS stopped free", "5% failed "},
      {"C:\\", true, true, false, false, "load \\\\.\\C: C:\\ NTFS correct free",
       "5% text 100% good "},
      {"C:\\", true, true, true, false, "load \\\\.\\C: C:\\ NTFS free", "5% text 100% good "},
      {"C:\\", false, false, false, false, "load ", ""},
      {"Q:\\", true, false, false, false, "load free", ""},
      {"", true, false, false, false, "", ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.library);
    SmallRig rig;
    FakeLibrary library;
    library.there = c.there;
    library.in_use = c.in_use;
    library.messages = all;
    test::NotingSink sink(c.wants_end);
    CheckVolumeBy(library, *rig.machine, c.root, {.correct_errors = c.correct}, sink);
    EXPECT_EQ(library.notes, c.library);
    EXPECT_EQ(sink.notes, c.sink);
  }
}

// A device of 2^33 bytes that notes what it is asked.
class FakeDevices final : public RawDevices {
 public:
  std::string notes;
  bool refuses = false;

  Handle OpenDevice(const std::string& path) override {
    notes += path + " ";
    return refuses ? kInvalidHandle : 7;
  }
  void CloseDevice(Handle) override { notes += "close"; }
  std::uint32_t SetPointer(Handle, std::int32_t low, std::int32_t high) override {
    notes += std::to_string(high) + "," + std::to_string(low) + " ";
    return high > 1 ? kNoPosition : static_cast<std::uint32_t>(low);
  }
  bool ReadDevice(Handle, std::span<std::uint8_t> out) override {
    std::fill(out.begin(), out.end(), std::uint8_t{42});
    return out.size() != 513;
  }
  bool WriteDevice(Handle, std::span<const std::uint8_t> data) override {
    notes += "write " + std::to_string(data.size()) + " ";
    return false;
  }
  void FlushDevice(Handle) override { notes += "flush "; }
  void LockRange(Handle, std::uint64_t offset, std::uint32_t count) override {
    notes += "lock " + std::to_string(offset) + "+" + std::to_string(count) + " ";
  }
  void UnlockRange(Handle handle, std::uint64_t offset, std::uint32_t count) override {
    notes += "un";
    LockRange(handle, offset, count);
  }
};

TEST(SectorIo, ReadsWritesAndFails) {
  struct Case {
    std::int64_t sector;
    std::int32_t count;
    std::uint8_t mode;
    bool fails;
    const char* calls;
  };
  const Case cases[] = {
      {0, 512, 0, false, "0,0 close"},
      {8388608, 512, 0, false, "1,0 close"},
      {4194304, 512, 0, false, "0,-2147483648 close"},
      {16777216, 512, 0, true, "2,0 close"},
      {0, 513, 0, true, "0,0 close"},
      {-1, 512, 0, true, "close"},
      {INT64_MAX, 512, 0, true, "close"},
      {0, -5, 0, true, "close"},
      {3, 512, 1, false, "0,1536 lock 1536+512 write 512 flush unlock 1536+512 close"},
      {3, 512, 9, false, "close"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.calls) + " of sector " + std::to_string(c.sector));
    FakeDevices devices;
    SectorIo io(devices);
    io.device_path = "P";
    io.bytes_per_sector = 512;
    io.SectorWriteBuffer.resize(600);
    io.ReadWriteSector(c.sector, c.count, c.mode);
    EXPECT_EQ(io.SectorIoFailed != False, c.fails);
    EXPECT_EQ(devices.notes, std::string("P ") + c.calls);
    const std::vector<std::uint8_t> read = io.SectorBuffer;
    EXPECT_TRUE(c.fails || c.mode != 0 || read == std::vector<std::uint8_t>(512, 42));
    devices.refuses = true;
    io.ReadWriteSector(0, 512, 0);
    EXPECT_TRUE(io.SectorIoFailed && io.SectorBuffer == read);
  }
}

}  // namespace
}  // namespace vornalux::testing
