// SPDX-License-Identifier: GPL-2.0-or-later
#include "user/watch.h"

#include <exception>

namespace vornalux::testing {
namespace {

[[noreturn]] void Break(const char* rule, const std::string& what) { throw Fault{rule, what}; }

std::string Name(char letter) { return letter == '\0' ? "none" : std::string{letter, ':'}; }

void Same(const char* rule, const char* what, char shown, char target) {
  if (shown == target) return;
  Break(rule, std::string(what) + " " + Name(shown) + ", the volume worked on " + Name(target));
}

bool Has(const std::string& line, const char* name) {
  return (line + " ").find(std::string(name) + " ") != std::string::npos;
}

// The volume that the line names last.
char JobLetter(const std::string& line) {
  char letter = '\0';
  for (const char* name : {"/drv ", "/dir \""}) {
    const std::size_t at = line.find(name);
    if (at != std::string::npos)
      letter = LetterOf(std::string_view(line).substr(at + 5 + (name[4] == '"')));
  }
  return letter;
}

}  // namespace

Watch::Watch(World& world, Screen& screen) : world_(world), screen_(screen) {
  world.machine.Log().SetObserver([this](const CallRecord& call) {
    // Handles are closed while a fault is on its way out.
    if (std::uncaught_exceptions() == 0) Heard(call);
  });
  screen.panels_filled = [this] { panels_of_ = last_walk_; };
  screen.map_shown = [this] { map_of_ = last_bitmap_; };
}

Watch::Run Watch::NewRun() const {
  return {.is_job = false,
          .line = {},
          .letter = screen_.Target(),
          .boxes = boxes_,
          .stops = stops_,
          .walks = walks_,
          .bitmaps = bitmaps_,
          .without_gap = screen_.WithoutGap(),
          .lists_valid = screen_.ListsValid()};
}

void Watch::BeginPass() { runs_.push_back(NewRun()); }

void Watch::BeginJob(const std::string& line) {
  runs_.push_back(NewRun());
  runs_.back().is_job = true;
  runs_.back().line = line;
  runs_.back().letter = JobLetter(line);
}

// Whoever runs something gets something done, or hears why not.
void Watch::CheckDeeds(const Run& run, const char* what) const {
  if (ended_ || boxes_ != run.boxes || stops_ != run.stops) return;
  if (!run.lists_valid && walks_ == run.walks) {
    Break("h: nothing walked, nothing said", what);
  }
  if (screen_.WithoutGap() != run.without_gap && bitmaps_ == run.bitmaps) {
    Break("h: no free space looked up, nothing said", what);
  }
}

void Watch::EndPass() {
  CheckDeeds(runs_.back(), "a pass");
  runs_.pop_back();
}

void Watch::EndJob() {
  const std::string& line = runs_.back().line;
  if (Has(line, "/d") || Has(line, "/o") || Has(line, "/c")) CheckDeeds(runs_.back(), "a job");
  runs_.pop_back();
}

void Watch::Chosen() const {
  if (!ended_ && !screen_.Folder().empty()) Break("a: folder", screen_.Folder() + " of a job");
}

void Watch::Ended() {
  if (!ended_) ended_busy_ = screen_.Busy();
  ended_ = true;
}

void Watch::PowersOff() const {
  if (ended_) Break("f: power off after the end", "");
  if (runs_.empty() || !Has(runs_.front().line, "/down")) Break("f: power off unasked", "");
  if (runs_.front().stops != stops_) Break("f: power off after a stop", "");
}

void Watch::OnlyOn(char letter, const std::string& what) const {
  if (!screen_.Busy()) Break("e: works behind the menu of rest", what);
  const Run* const run = runs_.empty() ? nullptr : &runs_.back();
  if (run == nullptr) Break("e: works although nothing was started", what);
  Same("d: works on another volume than the one shown", what.c_str(), letter, screen_.Target());
  if (run->letter != '\0' && letter != run->letter) {
    Break(run->is_job ? "d: a job works elsewhere" : "d: a pass changes its volume",
          what + " instead of " + Name(run->letter));
  }
}

// The entry in hand may be brought to its end, no more: one in each of the phases that are left,
// and the master file table.
void Watch::Handed(const std::string& path) {
  if (!ended_) return;
  if (!ended_busy_) Break("f: works after the end", path);
  after_end_.insert(path);
  if (after_end_.size() > 3) Break("f: goes on after the end", path);
}

void Watch::Heard(const CallRecord& call) {
  const std::string& path = world_.machine.Log().Path(call);
  const char letter = LetterOf(path);
  switch (call.kind) {
    case CallKind::VolumeBitmap:
      if (call.error != error::kSuccess && call.error != error::kMoreData) return;
      last_bitmap_ = letter;
      if (call.handle == screen_.VolumeHandle()) ++bitmaps_;
      return;
    case CallKind::FindFirst:
      if (call.error == error::kSuccess) ++walks_;
      last_walk_ = letter;
      OnlyOn(letter, "walks " + path);
      Handed("walk");
      return;
    case CallKind::MoveClusters:
      OnlyOn(letter, "moves " + path);
      Handed(path);
      return;
    default:
      return;
  }
}

void Watch::AtEvent() const {
  if (ended_) return;
  const std::string fault = screen_.MenuFault();
  if (!fault.empty()) Break("e: menu", fault);
  if (runs_.empty() && screen_.Busy()) Break("e: busy menu without a run", "");
  if (!runs_.empty() && !runs_.back().is_job && !screen_.Busy()) {
    Break("e: menu of rest inside a pass", "");
  }
}

void Watch::AtStep(bool tray_icon_shown) const {
  const std::string damage = world_.Damage();
  if (!damage.empty()) Break("g: content", damage);
  if (ended_) return;
  const char target = screen_.Target();
  if (screen_.List() != '\0') Same("a: list", "chosen in the list", screen_.List(), target);
  if (screen_.JobLine() != '\0') Same("a: job line", "in the job line", screen_.JobLine(), target);
  const bool open = screen_.PassesEnabled();
  if (!(screen_.MainVisible() || tray_icon_shown) || !(open || screen_.Busy())) return;
  Same("a: caption", "in the caption", screen_.Caption(), target);
  if (screen_.Heat() != '\0') Same("a: heat", "in the heat line", screen_.Heat(), target);
  Same(open ? "b: passes enabled" : "a: handle", "open", screen_.OpenVolume(), target);
  if (!screen_.PanelsBlank()) Same("c: panels", "in the panels", panels_of_, target);
  if (!screen_.MapBlank()) Same("c: map", "on the map", map_of_, target);
  const std::string foreign = screen_.ForeignPath(target);
  if (!foreign.empty()) Break("c: lists", foreign);
}

void Watch::AtRest(bool tray_icon_shown) const {
  AtEvent();
  AtStep(tray_icon_shown);
  if (ended_) return;
  const std::size_t handles = world_.machine.OpenHandles();
  if (handles > (screen_.VolumeHandle() == kInvalidHandle ? 0U : 1U)) {
    Break("g: handles", std::to_string(handles) + " open");
  }
  if (!screen_.Visible() && !tray_icon_shown) Break("i: no window, no icon", "");
}

}  // namespace vornalux::testing
