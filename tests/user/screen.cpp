// SPDX-License-Identifier: GPL-2.0-or-later
#include "user/screen.h"

#include <algorithm>

#include "app/start_up.h"

namespace vornalux::testing {
namespace {

constexpr std::uint32_t kLeftButtonDown = 513;

class PlainSystem final : public System {
 public:
  std::int32_t AdministratorTest() override { return 1; }
  bool Version(SystemVersion& version) override {
    version = {2, 6, 1, 7601, {}};
    return true;
  }
  bool IsWow64Process() override { return false; }
  bool EnablePrivilege(const std::string&) override { return true; }
  void InitCommonControls(std::uint32_t) override {}
  void ExitWindows(std::uint32_t, std::uint32_t) override {}
};

bool AnyForeign(const std::vector<std::string>& paths, char letter, std::string& found) {
  for (const std::string& path : paths) {
    if (path.empty() || LetterOf(path) == letter) continue;
    found = path;
    return true;
  }
  return false;
}

}  // namespace

char LetterOf(std::string_view text) {
  if (text.size() < 2 || text[1] != ':') return '\0';
  return text[0] >= 'a' ? static_cast<char>(text[0] - 'a' + 'A') : text[0];
}

Screen::Screen(const Platform& platform, const CallLog& log)
    : log_(log), program_(std::make_unique<Program>(platform)) {
  DefragWindow& main = program_->main_window;
  main.Picdepartvolume.Resize(8, 1);  // of a narrow map the events are soon over
  main.unloaded = [this] { Raise(ended); };
  program_->launcher.end_program = [this] { Raise(job_closed); };
  for (Label& panel : main.status_panels) panel.changed = [this] { Raise(panels_filled); };
  main.Picdepartvolume.refreshed = [this] { Raise(map_shown); };
}

void Screen::Start(const std::string& job_line) {
  PlainSystem system;
  StartUp(system, *program_, job_line);
}

template <typename C>
void Screen::Press(Deeds& deeds, Form& form, const char* name, C& control, int weight) {
  const auto possible = [&control] { return control.visible && control.enabled; };
  deeds.push_back({name, weight, &form, possible, [&control] { control.Click(); }});
}

void Screen::AddMainDeeds(Deeds& deeds) {
  DefragWindow& main = program_->main_window;
  Press(deeds, main, "Drive", main.Quitter, 6);
  Press(deeds, main, "Stop", main.Arretdefrag, 12);
  Press(deeds, main, "Analyze", main.cmdanalysemore, 12);
  Press(deeds, main, "Defrag", main.cmdDefrag, 12);
  Press(deeds, main, "Optimize", main.SmartOptimize, 6);
  Press(deeds, main, "Compact", main.cmdCompact, 6);
  Press(deeds, main, "Minimize", main.minmnu, 2);
  Press(deeds, main, "Exit", main.exitmnu);
  Press(deeds, main, "Redraw after each file", main.Affiche);
  Press(deeds, main, "Do not show names", main.ChkNoFileDisplay);
  const auto always = [] { return true; };
  deeds.push_back({"click on the map", 4, &main,
                   [&main] { return main.Picdepartvolume.visible.get(); },
                   [&main] { Raise(main.Picdepartvolume.click); }});
  deeds.push_back({"details", 4, &main, always, [&main] { Raise(main.Label4[1].click); }});
  deeds.push_back(
      {"close main", 1, &main, always, [&main] { main.QueryUnload(CloseReason::CloseBox); }});
  deeds.push_back({"minimize main", 1, &main, always, [&main] {
                     main.window_state = WindowState::Minimized;
                     main.Resized();
                   }});
}

void Screen::AddLauncherDeeds(Deeds& deeds) {
  Introfrm& launcher = program_->launcher;
  DefragWindow& main = program_->main_window;
  Press(deeds, launcher, "Select Drive", launcher.CmdGo, 16);
  Press(deeds, launcher, "More", launcher.CmdJob, 6);
  Press(deeds, launcher, "Cancel check", launcher.CmdCancel, 4);
  Press(deeds, launcher, "VSS safe-mode now", launcher.VSS_LIVE);
  for (std::int32_t i = 0; i < 4; ++i) {
    const auto possible = [&launcher, i] {
      const ComboBox& list = launcher.ImageCombo1;
      return list.visible && list.enabled && i < std::ssize(list.items());
    };
    deeds.push_back({"choose " + std::to_string(i + 1), 5, &launcher, possible,
                     [&launcher, i] { launcher.ImageCombo1.Choose(i); }});
  }
  for (const char* text : {"", "*.pf", "*.*"}) {
    deeds.push_back({"exclude " + std::string(text), 1, &launcher,
                     [&launcher] { return launcher.ExcludeTxt.enabled.get(); },
                     [&launcher, text] { launcher.ExcludeTxt.text = text; }});
  }
  deeds.push_back({"close launcher", 1, &launcher, [] { return true; },
                   [&main] { main.QueryUnload(CloseReason::CloseBox); }});
  // Of the options of a job, which are folded away.
  const auto option = [&](const char* name, auto& control, bool after = false) {
    const auto possible = [&launcher, &control, after] {
      return launcher.FrmJob.visible && control.enabled && (!after || launcher.FrmAfter.enabled);
    };
    deeds.push_back({name, 1, &launcher, possible, [&control] { control.Click(); }});
  };
  option("job Defrag", launcher.Option1);
  option("job Compact", launcher.Option2);
  option("job Optimize", launcher.Option3);
  option("job Low", launcher.OptPrioLow);
  option("job Normal", launcher.OptPrioMed);
  option("job High", launcher.OptPrioHi);
  option("job When done", launcher.Chk_ShutDown);
  option("job Close", launcher.OptClose, true);
  option("job Shutdown", launcher.OptShutDown, true);
  option("job Run minimized", launcher.Chk_Minmized);
  option("job VSS safe-mode", launcher.VSS_Command);
  option("job shortcut", launcher.Command2);
}

void Screen::AddOtherDeeds(Deeds& deeds) {
  FrmDetails& details = program_->main_window.details;
  Press(deeds, details, "details defrag", details.Command1);
  Press(deeds, details, "details optimize", details.Command2);
  Press(deeds, details, "details sys area", details.Command3);
  HDDTempWarning& warning = program_->main_window.temperature_warning;
  Press(deeds, warning, "warning Disable", warning.Command1, 4);
  Press(deeds, warning, "warning Stop", warning.Command2, 4);
  Press(deeds, warning, "warning Continue", warning.Command3, 4);
  frmContext& context = program_->launcher.context_menu;
  Press(deeds, context, "context item", context.Check1[2]);
  Press(deeds, context, "context OK", context.cmdOK);
  Press(deeds, context, "context Apply", context.cmdApply);
  Press(deeds, context, "context Cancel", context.cmdCancel);
  const auto close = [&](const char* name, Form& form) {
    deeds.push_back({name, 1, &form, [] { return true; }, [&form] { form.Hide(); }});
  };
  close("close details", details);
  close("close log", program_->debug_window);
  close("close warning", warning);
  deeds.push_back({"close context", 1, &context, [] { return true; },
                   [&context] { context.cmdCancel.Click(); }});
}

void Screen::AddDeeds(Deeds& deeds, const std::function<bool()>& tray_icon_shown) {
  AddMainDeeds(deeds);
  AddLauncherDeeds(deeds);
  AddOtherDeeds(deeds);
  DefragWindow& main = program_->main_window;
  Introfrm& launcher = program_->launcher;
  const auto tick = [&](const char* name, Timer& timer, int weight) {
    const auto possible = [&timer] { return timer.enabled.get(); };
    deeds.push_back({name, weight, nullptr, possible, [&timer] { Raise(timer.tick); }});
  };
  tick("tick counters", main.UpdateTimer, 8);
  tick("tick temperature", main.tmrTemperatures, 6);
  tick("tick warning", main.temperature_warning.tmrTemperatures, 6);
  deeds.push_back({"click on the tray icon", 16, nullptr,
                   [&launcher, tray_icon_shown] { return !launcher.visible && tray_icon_shown(); },
                   [&launcher] { launcher.TrayMouse(kLeftButtonDown); }});
  deeds.push_back({"end of session", 2, nullptr, [] { return true; },
                   [&main] { main.QueryUnload(CloseReason::EndOfSession); }});
}

char Screen::Target() const { return LetterOf(program_->settings.target.drive); }

char Screen::List() const {
  const ComboBox& list = program_->launcher.ImageCombo1;
  const std::int32_t index = list.list_index;
  return index < 0 ? '\0' : LetterOf(list.items()[static_cast<std::size_t>(index)]);
}

char Screen::JobLine() const {
  const std::string& line = program_->launcher.JobLine();
  return line.starts_with("/drv ") ? LetterOf(std::string_view(line).substr(5)) : '\0';
}

char Screen::Caption() const {
  const std::string& caption = program_->main_window.caption;
  const std::size_t colon = caption.find(':');
  if (colon == std::string::npos || colon == 0) return '\0';
  return LetterOf(std::string_view(caption).substr(colon - 1));
}

char Screen::Heat() const { return LetterOf(program_->main_window.Label6.caption.get()); }

char Screen::OpenVolume() const { return LetterOf(log_.HandlePath(VolumeHandle())); }

bool Screen::Visible() const {
  return program_->main_window.visible || program_->launcher.visible ||
         program_->launcher.context_menu.visible;
}

bool Screen::PassesEnabled() const {
  const DefragWindow& main = program_->main_window;
  return main.cmdanalysemore.enabled || main.cmdDefrag.enabled || main.SmartOptimize.enabled ||
         main.cmdCompact.enabled;
}

std::string Screen::MenuFault() const {
  const DefragWindow& main = program_->main_window;
  if (main.Arretdefrag.enabled != Busy()) return "Stop and Exit are alike";
  if (Busy() && (PassesEnabled() || main.Quitter.enabled)) return "more than Stop inside a run";
  return "";
}

bool Screen::PanelsBlank() const {
  const auto& panels = program_->main_window.status_panels;
  return std::all_of(panels.begin(), panels.end(),
                     [](const Label& panel) { return panel.caption.get().empty(); });
}

bool Screen::MapBlank() const {
  const PictureBox& map = program_->main_window.Picdepartvolume;
  if (!map.visible) return true;
  for (std::int32_t x = 0; x < map.width(); ++x) {
    if (map.Pixel(x, 0) != map.back_colour) return false;
  }
  return true;
}

std::string Screen::ForeignPath(char letter) const {
  const DefragWindow& main = program_->main_window;
  const Engine& engine = main.engine;
  std::string found;
  if (program_->flags.AnalysisValid && AnyForeign(engine.analysis.lists.FragNames, letter, found)) {
    return found + " in the fragmented files";
  }
  for (const PathList* list : {&engine.table.MoveOutFiles, &engine.table.OptimizeFiles,
                               &engine.table.DirsToMove, &engine.table.PrefetchFiles}) {
    if (program_->flags.ClassListsValid && AnyForeign(list->paths, letter, found)) {
      return found + " in a class list";
    }
  }
  if (main.details.visible && AnyForeign(main.details.ListView1.rows(), letter, found)) {
    return found + " in the details";
  }
  return "";
}

bool Screen::ListsValid() const {
  return program_->flags.AnalysisValid || program_->flags.ClassListsValid;
}

std::size_t Screen::WithoutGap() const {
  const auto& failures = program_->main_window.engine.movers.statistics.failures;
  return static_cast<std::size_t>(
      std::count_if(failures.begin(), failures.end(),
                    [](const MoveFailure& failure) { return failure.reason == NotMoved::NoGap; }));
}

}  // namespace vornalux::testing
