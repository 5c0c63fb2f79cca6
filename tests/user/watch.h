// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <exception>
#include <set>
#include <string>
#include <vector>

#include "user/screen.h"
#include "user/world.h"

namespace vornalux::testing {

// Looks on and throws a Fault when an invariant does not hold. One for each start of the program.
class Watch {
 public:
  Watch(World& world, Screen& screen) : world_(world), screen_(screen) {
    world.machine.Log().SetObserver([this](const CallRecord& call) {
      // Handles are closed while a fault is on its way out.
      if (std::uncaught_exceptions() == 0) Heard(call);
    });
    screen.panels_filled = [this] { panels_of_ = last_walk_; };
    screen.map_shown = [this] { map_of_ = last_bitmap_; };
    screen.captioned = [this] {
      if (std::uncaught_exceptions() == 0 && !runs_.empty() && !ended_) Captioned();
    };
    world.power_off = [this] { PowersOff(); };
  }

  // What is on the stack: a pass by the user, or the job that the program was started with.
  void BeginPass(const std::string& name) {
    runs_.push_back(NewRun(false, {}, screen_.Target()));
    runs_.back().thorough =
        screen_.ThoroughShown() && CanPlan([&](const PassRow& row) { return row.name == name; });
  }
  void BeginJob(const std::string& line) {
    runs_.push_back(NewRun(true, line, LetterIn(line)));
    runs_.back().thorough = Has(line, "/t") && CanPlan([&](const PassRow& row) {
                              return Has(line, std::string("/") + row.letter);
                            });
  }
  void EndRun() {
    CheckDeeds(runs_.back());
    runs_.pop_back();
  }

  void Box() { ++boxes_; }
  void Stopped() { ++stops_; }       // by the user
  void Chosen(bool in_list) const {  // a drive, by the user
    if (!ended_ && !screen_.Folder().empty()) Break("a: folder of a job", screen_.Folder());
    if (!ended_ && in_list && screen_.ThoroughShown()) Break("j: thorough of another drive", "");
  }
  void Ended() {  // the main window or the session
    if (!ended_) ended_busy_ = screen_.Busy();
    ended_ = true;
  }
  bool HasEnded() const { return ended_; }

  void AtEvent() const {  // inside whatever runs
    if (ended_) return;
    if (screen_.MenuMixed()) Break("e: menu mixed", "");
    if (runs_.empty() && screen_.Busy()) Break("e: busy menu without a run", "");
    if (!runs_.empty() && !runs_.back().is_job && !screen_.Busy()) {
      Break("e: menu of rest inside a pass", "");
    }
  }

  void AtStep(bool tray_icon_shown) const {  // before and after each
    const std::string damage = world_.Damage();
    if (!damage.empty()) Break("g: content", damage);
    if (ended_) return;
    const char target = screen_.Target();
    if (screen_.List() != '\0') Same("a: list", screen_.List(), target);
    if (screen_.JobLine() != '\0') Same("a: job line", screen_.JobLine(), target);
    const bool open = screen_.PassesEnabled();
    if (!(screen_.MainVisible() || tray_icon_shown) || !(open || screen_.Busy())) return;
    Same("a: caption", screen_.Caption(), target);
    if (screen_.Heat() != '\0') Same("a: heat", screen_.Heat(), target);
    Same(open ? "b: passes enabled" : "a: handle", screen_.OpenVolume(), target);
    if (!screen_.PanelsBlank()) Same("c: panels", panels_of_, target);
    if (!screen_.MapBlank()) Same("c: map", map_of_, target);
    const std::string foreign = screen_.ForeignPath(target);
    if (!foreign.empty()) Break("c: lists", foreign);
  }

  void AtRest(bool tray_icon_shown) const {  // when nothing is on the stack
    AtEvent();
    AtStep(tray_icon_shown);
    if (ended_) return;
    const std::size_t handles = world_.machine.OpenHandles();
    const std::size_t selected = screen_.VolumeHandle() == kInvalidHandle ? 0 : 1;
    if (handles != selected) Break("g: handles", std::to_string(handles) + " open");
    if (!screen_.AnyVisible() && !tray_icon_shown) Break("i: no window, no icon", "");
  }

 private:
  // A pass or a job, and what had been seen when it began.
  struct Run {
    bool is_job = false;
    std::string line;    // of a job
    char letter = '\0';  // of the only volume that it may work on, where that is known
    int boxes = 0;
    int stops = 0;
    int walks = 0;
    int bitmaps = 0;
    std::ptrdiff_t without_gap = 0;
    bool lists_valid = false;
    bool thorough = false;  // is to be
    bool planned = false;
  };

  [[noreturn]] static void Break(const char* rule, const std::string& what) {
    throw Fault{rule, what};
  }
  static std::string Name(char letter) { return letter ? std::string{letter, ':'} : "none"; }
  static void Same(const char* rule, char shown, char target, const std::string& what = {}) {
    if (shown != target) Break(rule, what + Name(shown) + " while on " + Name(target));
  }
  static bool Has(const std::string& line, const std::string& name) {
    return (line + " ").find(name + " ") != std::string::npos;
  }
  Run NewRun(bool is_job, const std::string& line, char letter) const {
    Run run{is_job, line, letter, boxes_, stops_, walks_, bitmaps_};
    run.without_gap = screen_.WithoutGap();
    run.lists_valid = screen_.ListsValid();
    return run;
  }

  // Whoever runs something gets something done, or hears why not.
  void CheckDeeds(const Run& run) const {
    if (ended_ || boxes_ != run.boxes || stops_ != run.stops) return;
    if (run.is_job && !Has(run.line, "/d") && !Has(run.line, "/o") && !Has(run.line, "/c")) return;
    if (!run.lists_valid && walks_ == run.walks) Break("h: nothing walked, nothing said", run.line);
    if (screen_.WithoutGap() != run.without_gap && bitmaps_ == run.bitmaps) {
      Break("h: free space not read, nothing said", run.line);
    }
  }

  static bool CanPlan(auto is_meant) {
    return std::ranges::any_of(
        kPasses, [&](const PassRow& row) { return is_meant(row) && row.thorough != nullptr; });
  }

  // A thorough run plans before it moves anything, and no other one plans.
  void Captioned() {
    Run& run = runs_.back();
    run.planned |= screen_.CaptionBegins("Planning");
    if (run.planned && !run.thorough) Break("j: thorough unasked", run.line);
    for (const char* work : {"Defragmenting", "Optimzing", "Compacting"}) {
      if (run.thorough == run.planned || !screen_.CaptionBegins(work)) continue;
      Break("j: asked to be thorough, was not", run.line);
    }
  }

  void PowersOff() const {
    if (ended_) Break("f: power off after the end", "");
    if (runs_.empty() || !Has(runs_[0].line, "/down")) Break("f: power off unasked", "");
    if (runs_[0].stops != stops_) Break("f: power off after a stop", "");
  }

  void WorksOn(CallKind kind, const std::string& path) {
    // What is planned to belong together is finished, so that no file is left in more pieces.
    const bool finishes = !runs_.empty() && runs_.back().planned;
    if (ended_ && kind == CallKind::MoveClusters && !finishes) {
      Break("f: moves after the end", path);
    }
    if (ended_) return AfterEnd(path);
    if (runs_.empty()) Break("e: works although nothing was started", path);
    if (!screen_.Busy() && kind == CallKind::MoveClusters) {
      Break("e: works behind the menu of rest", path);
    }
    const Run& run = runs_.back();
    Same("d: works on another volume than the one shown", LetterOf(path), screen_.Target());
    if (run.letter == '\0') return;
    Same(run.is_job ? "d: a job works elsewhere" : "d: a pass changes its volume", LetterOf(path),
         run.letter);
  }

  // The entry in hand may be brought to its end: one in each of the phases that are left, and the
  // master file table.
  void AfterEnd(const std::string& path) {
    if (!ended_busy_) Break("f: works after the end", path);
    after_end_.insert(path);
    if (after_end_.size() > 3) Break("f: goes on after the end", path);
  }

  void Heard(const CallRecord& call) {
    const std::string& path = world_.machine.Log().Path(call);
    if (call.kind == CallKind::VolumeBitmap && call.error == error::kSuccess) {
      last_bitmap_ = LetterOf(path);
      if (call.handle == screen_.VolumeHandle()) ++bitmaps_;
    } else if (call.kind == CallKind::FindFirst) {
      last_walk_ = LetterOf(path);
      if (call.error == error::kSuccess) ++walks_;
      WorksOn(call.kind, path);
    } else if (call.kind == CallKind::MoveClusters && call.error == error::kSuccess) {
      WorksOn(call.kind, path);
    }
  }

  World& world_;
  Screen& screen_;
  std::vector<Run> runs_;
  int boxes_ = 0;
  int stops_ = 0;
  int walks_ = 0;    // folders listed
  int bitmaps_ = 0;  // read through the volume that was selected
  char last_walk_ = '\0';
  char last_bitmap_ = '\0';
  char panels_of_ = '\0';
  char map_of_ = '\0';
  bool ended_ = false;
  bool ended_busy_ = false;
  std::set<std::string> after_end_;
};

}  // namespace vornalux::testing
