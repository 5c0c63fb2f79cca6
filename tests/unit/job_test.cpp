// SPDX-License-Identifier: GPL-2.0-or-later
// Command-line tails, the job line, what follows a run, and the log of a whole job.
#include "app/job_tail.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// Two drives, of which C: is selected, and a note of whatever a job does, in order.
struct JobRig {
  explicit JobRig(bool dirty = false)
      : c({.total_clusters = 200, .dirty = dirty}),
        d({.total_clusters = 200, .file_system = "FAT32"}),
        rig(c, {.windows_folder = "C:\\Windows", .seed = 1, .power_off = [this] {
                  events.push_back("power off");
                }}) {
    rig.machine->AddVolume('D', d);
    c.AddFolder("Folder");
    d.AddFile("My Games\\Saves\\a", {{10, 2}});
    rig.program.launcher.end_program = [this] { events.push_back("end"); };
    rig.machine->Log().SetObserver([this](const CallRecord& call) {
      const CallLog& log = rig.machine->Log();
      if (call.kind == CallKind::CheckDisk) events.push_back("check " + log.Path(call));
      if (call.kind == CallKind::ShowBox) events.push_back("box " + log.Path(call));
      if (call.kind == CallKind::SetPriorityClass) {
        events.push_back("priority " + std::to_string(call.numbers[0]));
      }
    });
    rig.window.changed = [this] {
      for (const char* doing : {"Defragmenting", "Defragging", "Compacting"}) {
        const bool thorough = rig.program.flags.Thorough != False;
        const std::string note = doing + std::string(thorough ? " thoroughly" : "");
        if (rig.window.caption.get().starts_with(doing) &&
            (events.empty() || events.back() != note)) {
          events.push_back(note);
        }
      }
    };
  }

  std::string Events() const {
    std::string text;
    for (const std::string& event : events) text += (text.empty() ? "" : " | ") + event;
    return text;
  }

  std::vector<std::string> events;
  SimulatedVolume c;
  SimulatedVolume d;
  Rig rig;
};

// In each row: the tail, the drive and folder that it selects, how it ends, and what happens.
TEST(JobTail, Table) {
  using enum JobOutcome;
  struct Case {
    const char *tail, *drive, *folder;
    JobOutcome outcome;
    std::string events;
  };
  const Case cases[] = {
      {R"(/drv D: /o)", R"(D:\)", "", Done, R"(check D:\ | Compacting | Defragging)"},
      {R"(-DRV D: -O)", R"(D:\)", "", Done, R"(check D:\ | Compacting | Defragging)"},
      {R"(  /drv d:\ /C)", R"(d:\)", "", Done, R"(check d:\ | Compacting)"},
      {R"(/d)", R"(C:\)", "", Done, R"(check C:\ | Defragmenting)"},
      {R"(/o /d /c)", R"(C:\)", "", Done, R"(check C:\ | Compacting)"},
      {R"(/drv D: /d /t)", R"(D:\)", "", Done, R"(check D:\ | Defragmenting thoroughly)"},
      {R"(-T /o -d)", R"(C:\)", "", Done, R"(check C:\ | Defragmenting thoroughly)"},
      {R"(/d /t /o)", R"(C:\)", "", Done, R"(check C:\ | Compacting | Defragging)"},
      {R"(/t)", R"(C:\)", "", Done, R"(check C:\)"},
      {R"(/d /temp)", R"(C:\)", "", InvalidArgument, "box Invalid argument: /temp"},
      {R"(/dir "D:\a /t" /d)", R"(D:\)", R"(a \t)", NoFolder,
       R"(check D:\ | box There is no folder D:\a \t.)"},
      {R"(/low /normal -high)", R"(C:\)", "", Done,
       R"(priority 64 | priority 32 | priority 32768 | check C:\)"},
      {R"(/dir "D:\My Games\Saves" /d)", R"(D:\)", R"(My Games\Saves)", Done,
       R"(check D:\ | Defragmenting)"},
      {R"(/dir "D:\\Folder\" /drv C:)", R"(C:\)", "Folder", Done, R"(check C:\)"},
      {R"(/dir "D:" /d)", R"(D:\)", "", Done, R"(check D:\ | Defragmenting)"},
      {R"(/dir D:\Games /d)", R"(C:\)", "", Done,
       R"(box No dir specified. | check C:\ | Defragmenting)"},
      {R"(/dir "Games")", R"(C:\)", "", Done, R"(box No dir specified. | check C:\)"},
      {R"(/dir)", R"(C:\)", "", Done,
       R"(box No dir specified. | box Invalid directory. | check C:\)"},
      {R"(/dir /d)", R"(C:\)", "", Done, R"(box Invalid directory. | check C:\)"},
      {R"(/d /drv)", R"(C:\)", "", Done,
       R"(box No drive specified. | box Invalid drivename. | check C:\ | Defragmenting)"},
      {R"(/drv -d)", R"(C:\)", "", Done, R"(box Invalid drivename. | check C:\)"},
      {R"(/d  /c)", R"(C:\)", "", InvalidArgument, "box Invalid argument: "},
      {R"(/d )", R"(C:\)", "", Done, R"(check C:\ | Defragmenting)"},
      {R"(/drv D: /Bogus /close)", R"(C:\)", "", InvalidArgument, "box Invalid argument: /Bogus"},
      {R"(/d "C:\a b")", R"(C:\)", "", InvalidArgument, R"(box Invalid argument: "C:\a%b)"},
      {R"(/dir "D:\a" "b c")", R"(C:\)", "", InvalidArgument, R"(box Invalid argument: "b)"},
      {R"(/dir "D:/My Games/Saves/" /d)", R"(D:\)", R"(My Games\Saves)", Done,
       R"(check D:\ | Defragmenting)"},
      {R"(/dir "D:\none" /d /down)", R"(D:\)", "none", NoFolder,
       R"(check D:\ | box There is no folder D:\none.)"},
      {R"(/drv  /d)", R"(C:\)", "", NoDrive, "box No drive specified."},
      {R"(/setshell /bogus)", R"(C:\)", "", ContextMenu, ""},
      {R"(/close)", R"(C:\)", "", Done, R"(check C:\ | end)"},
      {R"(/down)", R"(C:\)", "", Done, R"(check C:\ | power off)"},
      {R"(/down /close /d)", R"(C:\)", "", Done, R"(check C:\ | Defragmenting | power off | end)"},
      {R"(/drv X: /d)", R"(X:\)", "", Failed,
       "box Error opening the drive.\r\nClose some applications and try again."},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.tail);
    JobRig job;
    EXPECT_EQ(job.rig.program.launcher.process_cmd_line(test.tail), test.outcome);
    EXPECT_EQ(job.rig.engine.volume.Target().drive, test.drive);
    EXPECT_EQ(job.rig.engine.volume.Target().directory, test.folder);
    EXPECT_EQ(job.Events(), test.events);
  }
}

TEST(JobTail, Effects) {
  JobRig job;
  job.rig.program.launcher.process_cmd_line("/vssafe -dbg /min -setshell");
  EXPECT_EQ(job.rig.program.flags.VssSafe, True);
  EXPECT_EQ(job.rig.program.flags.DebugLog, True);
  EXPECT_TRUE(job.rig.program.debug_window.visible);
  EXPECT_TRUE(job.rig.program.launcher.context_menu.visible);
  EXPECT_EQ(job.rig.Log(), "");
  job.rig.program.launcher.process_cmd_line("/d /t /o");
  EXPECT_NE(job.rig.Log().find("CDM_line Optimize has no thorough form: /t goes with /d"),
            std::string::npos);

  SimulatedPlatform machine;
  Program program(machine.All());
  EXPECT_EQ(program.launcher.process_cmd_line("/d /down"), JobOutcome::NoDrive);
  EXPECT_EQ(machine.User().Boxes()[0].text, "No drive specified.");
  EXPECT_EQ(machine.PowerOffs(), 0);
}

TEST(Job, DirtyVolumeIsLeftAlone) {
  JobRig job(true);
  EXPECT_EQ(job.rig.program.launcher.process_cmd_line("/d /down /close"), JobOutcome::Dirty);
  EXPECT_EQ(job.Events(),
            "check C:\\ | box One or more volumes are 'dirty'!\r\n"
            "You should run Chkdsk to correct errors.");
  EXPECT_EQ(job.rig.machine->User().Boxes()[0].title, "Vornalux - C:");
  // The next volume's check starts from a clean slate.
  EXPECT_EQ(job.rig.program.launcher.process_cmd_line("/drv D: /d"), JobOutcome::Done);
}

TEST(Job, NothingFollowsAStoppedRun) {
  JobRig job;
  job.c.AddFile("a", {{20, 2}, {30, 2}});
  ScriptedDesktop& user = job.rig.machine->User();
  user.Answer(BoxAnswer::Yes);
  user.AtEveryDoEvents([&] {
    if (user.AnswersLeft() > 0) job.rig.window.Arretdefrag.Click();
  });
  EXPECT_EQ(job.rig.program.launcher.process_cmd_line("/d /down /close"), JobOutcome::Stopped);
  EXPECT_EQ(job.Events(), "check C:\\ | box Are you sure?");
}

TEST(JobLine, FollowsTheOptions) {
  JobRig job;
  Introfrm& launcher = job.rig.program.launcher;
  EXPECT_EQ(launcher.JobLine(), "/drv C: /d /normal");
  launcher.Chk_Thorough.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /d /t /normal");
  launcher.Option3.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /o /normal");
  launcher.Chk_Thorough.Click();  // disabled
  launcher.Option1.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /d /t /normal");
  launcher.Chk_Thorough.value = false;
  launcher.VSS_Command.Click();
  launcher.Option3.Click();
  launcher.OptPrioHi.Click();
  launcher.Chk_Minmized.Click();
  launcher.OptClose.Click();
  launcher.Chk_ShutDown.Click();
  launcher.OptShutDown.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /o /high /min /down /vssafe");
  EXPECT_EQ(launcher.Command2.caption.get(),
            "Create desktop shortcut Job /drv C: /o /high /min /down /vssafe");
  EXPECT_FALSE(launcher.Option1.value || launcher.OptPrioMed.value || launcher.OptClose.value);
  launcher.Option2.Click();
  launcher.OptPrioLow.Click();
  launcher.Chk_Minmized.Click();
  launcher.Chk_ShutDown.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /c /low /vssafe");
  EXPECT_FALSE(launcher.FrmAfter.enabled);
  launcher.Chk_ShutDown.Click();
  EXPECT_EQ(launcher.JobLine(), "/drv C: /c /low /down /vssafe");
  EXPECT_EQ(job.Events(), "priority 32768 | priority 64");
  launcher.SelectDrive("D:\\");
  EXPECT_EQ(launcher.JobLine(), "/drv D: /d /normal /down /vssafe");
}

// The log of one job with every kind of line, worked out by hand.
TEST(Job, LogOfAnOptimizeJob) {
  SimulatedVolume volume({.total_clusters = 200, .mft_zone = {60, 100}});
  volume.AddMft({{0, 16}});
  volume.AddFolder("docs", {{70, 1}});
  volume.AddFile("docs\\split.txt", {{20, 2}, {30, 2}, {40, 1}});
  volume.AddFile("docs\\back to back.txt", {{150, 2}});
  volume.AddFile("far", {{190, 4}});
  volume.Lock(volume.AddFile("locked", {{120, 3}}));
  volume.AddFile("Windows\\Prefetch\\a.pf", {{196, 1}});
  volume.MakeImmovable(*volume.Find("Windows\\Prefetch\\a.pf"));
  Rig rig(volume);
  EXPECT_EQ(rig.program.launcher.process_cmd_line("/dbg /drv C: /o"), JobOutcome::Done);
  EXPECT_EQ(rig.Log(),
            "CDM_line arguments: /dbg /drv C: /o\r\n"
            "Warning, sys space low!: 112\r\n"
            "Volume constants for drive: C:\\\r\n"
            "total clusters: 200\r\n"
            "free clusters : 168\r\n"
            "mftreserved  : 60-100\r\n"
            "end reserved  : 112\r\n"
            "optimize area : 16\r\n"
            "fragged: C:\\docs\\split.txt, fragments: 3\r\n"
            "total files   : 5\r\n"
            "total dirs    : 3\r\n"
            "fragged       : 1\r\n"
            "move_out_files: 2\r\n"
            "optimize_files: 3\r\n"
            "dirs_to_move  : 1\r\n"
            "prefetch_files: 1\r\n"
            "locked  _files: 1\r\n"
            "**********************************************\r\n"
            "Warning, sys space low!: 112\r\n"
            "Warning, sys space low!: 112\r\n"
            "DFR:can't move: C:\\$MFT, prolly no gap, last dll_err:The operation completed "
            "successfully.\r\n"
            "Warning, sys space low!: 112\r\n"
            "PRF:can't move: C:\\Windows\\Prefetch\\a.pf, prolly no gap\r\n"
            "Warning, sys space low!: 112\r\n"
            "OPT:can't move: C:\\docs\\split.txt, prolly no gap\r\n"
            "Warning, sys space low!: 112\r\n"
            "Warning, sys space low!: 112\r\n");
}

}  // namespace
}  // namespace vornalux::testing
