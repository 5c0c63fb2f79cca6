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

template <typename C>
Deed Press(Form& form, const char* name, C& control, int weight = 1) {
  return {name, weight, &form, [&control] { control.Click(); },
          [&control] { return control.visible && control.enabled; }};
}

}  // namespace

Screen::Screen(const Platform& platform, const CallLog& log) : log_(log), program_(platform) {
  main_.Picdepartvolume.Resize(8, 1);  // a narrow map is soon drawn
  main_.unloaded = [this] { Raise(ended); };
  launcher_.end_program = [this] { Raise(job_closed); };
  for (Label& panel : main_.status_panels) panel.changed = [this] { Raise(panels_filled); };
  main_.Picdepartvolume.refreshed = [this] { Raise(map_shown); };
}

void Screen::Start(const std::string& job_line) {
  PlainSystem system;
  StartUp(system, program_, job_line);
}

void Screen::AddMainDeeds(Deeds& deeds) {
  for (const auto& [name, item, weight] : {std::tuple{"Drive", &main_.Quitter, 6},
                                           {"Stop", &main_.Arretdefrag, 12},
                                           {"Analyze", &main_.cmdanalysemore, 12},
                                           {"Defrag", &main_.cmdDefrag, 12},
                                           {"Optimize", &main_.SmartOptimize, 6},
                                           {"Compact", &main_.cmdCompact, 6},
                                           {"Minimize", &main_.minmnu, 2},
                                           {"Exit", &main_.exitmnu, 1}}) {
    deeds.push_back(Press(main_, name, *item, weight));
  }
  deeds.push_back(Press(main_, "Redraw after each file", main_.Affiche));
  deeds.push_back(Press(main_, "Do not show names", main_.ChkNoFileDisplay));
  deeds.push_back({"click on the map", 4, &main_, [this] { Raise(main_.Picdepartvolume.click); },
                   [this] { return main_.Picdepartvolume.visible.get(); }});
  deeds.push_back({"details", 4, &main_, [this] { Raise(main_.Label4[1].click); }});
  deeds.push_back({"close main", 1, &main_, [this] { main_.QueryUnload(CloseReason::CloseBox); }});
  deeds.push_back({"minimize main", 1, &main_, [this] {
                     main_.window_state = WindowState::Minimized;
                     main_.Resized();
                   }});
}

void Screen::AddLauncherDeeds(Deeds& deeds) {
  deeds.push_back(Press(launcher_, "Select Drive", launcher_.CmdGo, 16));
  deeds.push_back(Press(launcher_, "More", launcher_.CmdJob, 6));
  deeds.push_back(Press(launcher_, "Cancel check", launcher_.CmdCancel, 4));
  deeds.push_back(Press(launcher_, "VSS safe-mode now", launcher_.VSS_LIVE));
  for (std::int32_t i = 0; i < 3; ++i) {
    deeds.push_back({"choose " + std::to_string(i + 1), 5, &launcher_,
                     [this, i] { launcher_.ImageCombo1.Choose(i); },
                     [this, i] {
                       const ComboBox& list = launcher_.ImageCombo1;
                       return list.visible && list.enabled && i < std::ssize(list.items());
                     }});
  }
  for (const char* text : {"", "*.pf"}) {
    deeds.push_back({"exclude " + std::string(text), 1, &launcher_,
                     [this, text] { launcher_.ExcludeTxt.text = text; },
                     [this] { return launcher_.ExcludeTxt.enabled.get(); }});
  }
  deeds.push_back(
      {"close launcher", 1, &launcher_, [this] { main_.QueryUnload(CloseReason::CloseBox); }});
  // The options of a job, which are folded away at first.
  const auto option = [&](const char* name, auto& control, const Frame& frame) {
    deeds.push_back({name, 1, &launcher_, [&control] { control.Click(); },
                     [this, &control, &frame] {
                       return launcher_.FrmJob.visible && frame.enabled && control.enabled;
                     }});
  };
  option("job Defrag", launcher_.Option1, launcher_.FrmJob);
  option("job Optimize", launcher_.Option3, launcher_.FrmJob);
  option("job High", launcher_.OptPrioHi, launcher_.FrmJob);
  option("job When done", launcher_.Chk_ShutDown, launcher_.FrmJob);
  option("job Shutdown", launcher_.OptShutDown, launcher_.FrmAfter);
  option("job Run minimized", launcher_.Chk_Minmized, launcher_.FrmJob);
  option("job VSS safe-mode", launcher_.VSS_Command, launcher_.FrmJob);
  option("job shortcut", launcher_.Command2, launcher_.FrmJob);
}

void Screen::AddOtherDeeds(Deeds& deeds) {
  FrmDetails& details = main_.details;
  HDDTempWarning& warning = main_.temperature_warning;
  frmContext& context = launcher_.context_menu;
  for (const auto& [name, form, button, weight] :
       {std::tuple<const char*, Form*, Button*, int>{"details defrag", &details, &details.Command1,
                                                     1},
        {"details optimize", &details, &details.Command2, 1},
        {"details sys area", &details, &details.Command3, 1},
        {"warning Disable", &warning, &warning.Command1, 4},
        {"warning Stop", &warning, &warning.Command2, 4},
        {"warning Continue", &warning, &warning.Command3, 4},
        {"context OK", &context, &context.cmdOK, 1},
        {"context Apply", &context, &context.cmdApply, 1},
        {"context Cancel", &context, &context.cmdCancel, 1}}) {
    deeds.push_back(Press(*form, name, *button, weight));
  }
  deeds.push_back(Press(context, "context item", context.Check1[2]));
  for (const auto& [name, form] : {std::pair<const char*, Form*>{"close details", &details},
                                   {"close log", &program_.debug_window},
                                   {"close warning", &warning}}) {
    deeds.push_back({name, 1, form, [window = form] { window->Hide(); }});
  }
}

void Screen::AddDeeds(Deeds& deeds, const bool& tray_icon_shown) {
  AddMainDeeds(deeds);
  AddLauncherDeeds(deeds);
  AddOtherDeeds(deeds);
  const std::pair<const char*, Timer&> timers[] = {
      {"tick counters", main_.UpdateTimer},
      {"tick temperature", main_.tmrTemperatures},
      {"tick warning", main_.temperature_warning.tmrTemperatures}};
  for (const auto& [name, timer] : timers) {
    deeds.push_back({name, 6, nullptr, [&timer = timer] { Raise(timer.tick); },
                     [&timer = timer] { return timer.enabled.get(); }});
  }
  deeds.push_back({"click on the tray icon", 16, nullptr,
                   [this] { launcher_.TrayMouse(kLeftButtonDown); },
                   [this, &tray_icon_shown] { return !launcher_.visible && tray_icon_shown; }});
  deeds.push_back(
      {"end of session", 2, nullptr, [this] { main_.QueryUnload(CloseReason::EndOfSession); }});
}

char Screen::List() const {
  const std::int32_t index = launcher_.ImageCombo1.list_index;
  if (index < 0) return '\0';
  return LetterOf(launcher_.ImageCombo1.items()[static_cast<std::size_t>(index)]);
}

char Screen::JobLine() const {
  const std::string& line = launcher_.JobLine();
  return line.starts_with("/drv ") ? LetterOf(std::string_view(line).substr(5)) : '\0';
}

char Screen::Caption() const {
  const std::string& caption = main_.caption;
  const std::size_t colon = std::min(caption.find(':'), caption.size());
  return colon == 0 ? '\0' : LetterOf(std::string_view(caption).substr(colon - 1));
}

bool Screen::PassesEnabled() const {
  return main_.cmdanalysemore.enabled || main_.cmdDefrag.enabled || main_.SmartOptimize.enabled ||
         main_.cmdCompact.enabled;
}

bool Screen::MenuMixed() const {
  return main_.Arretdefrag.enabled != Busy() ||
         (Busy() && (PassesEnabled() || main_.Quitter.enabled));
}

bool Screen::PanelsBlank() const {
  return std::all_of(main_.status_panels.begin(), main_.status_panels.end(),
                     [](const Label& panel) { return panel.caption.get().empty(); });
}

bool Screen::MapBlank() const {
  const PictureBox& map = main_.Picdepartvolume;
  std::int32_t x = 0;
  while (x < map.width() && map.Pixel(x, 0) == map.back_colour) ++x;
  return !map.visible || x == map.width();
}

std::string Screen::ForeignPath(char letter) const {
  const Engine& engine = main_.engine;
  std::vector<const std::vector<std::string>*> lists;
  if (program_.flags.AnalysisValid) lists = {&engine.analysis.lists.FragNames};
  for (const PathList* list : {&engine.table.MoveOutFiles, &engine.table.OptimizeFiles,
                               &engine.table.DirsToMove, &engine.table.PrefetchFiles}) {
    if (program_.flags.ClassListsValid) lists.push_back(&list->paths);
  }
  if (main_.details.visible) lists.push_back(&main_.details.ListView1.rows());
  for (const auto* list : lists) {
    for (const std::string& path : *list) {
      if (!path.empty() && LetterOf(path) != letter) return path;
    }
  }
  return {};
}

std::size_t Screen::WithoutGap() const {
  const auto& failures = main_.engine.movers.statistics.failures;
  return static_cast<std::size_t>(
      std::count_if(failures.begin(), failures.end(),
                    [](const MoveFailure& failure) { return failure.reason == NotMoved::NoGap; }));
}

}  // namespace vornalux::testing
