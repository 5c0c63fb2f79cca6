// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "user/screen.h"
#include "user/watch.h"
#include "user/world.h"

namespace vornalux::testing {

using Taken = std::function<void(const Step&)>;

// Plays a sequence: the user, his clock and the world. The seed makes the volumes, and as many
// steps at random; those given are taken as they come, without the ones that are not possible then.
// Each step is told when it begins. Steps also happen inside the events of what a step runs.
class Player final : public Desktop {
 public:
  Player(std::uint64_t seed, std::size_t steps, const std::vector<Step>* given, Taken taken)
      : world_(seed),
        random_(seed),
        given_(given),
        left_(given ? given->size() : steps),
        taken_(std::move(taken)) {
    world_.AddDeeds(outside_);
    outside_.push_back({kStart, 40, nullptr, {}, [this] { return depth_ == 0; }});
  }

  // The fault that ended it.
  std::optional<Fault> Play() {
    try {
      while (left_ > 0) StepAtRest();
      EndLife();
    } catch (const Fault& fault) {
      return fault;
    } catch (const std::exception& thrown) {
      return Fault{"x: exception", thrown.what()};
    }
    return std::nullopt;
  }

  void DoEvents() override {
    if (life_) life_->watch.AtEvent();
    Inside();
  }

  bool InputPending() override { return DueInside(since_ + 1); }

  BoxAnswer ShowBox(const std::string&, const std::string& title, BoxButtons buttons,
                    BoxIcon) override {
    life_->watch.Box();
    const bool yes = AnswersYes();
    if (buttons == BoxButtons::Ok) return BoxAnswer::Ok;
    if (yes && title == "Paused ...") life_->watch.Stopped();
    return yes ? BoxAnswer::Yes : BoxAnswer::No;
  }

  std::optional<std::string> InputBox(const std::string&, const std::string&,
                                      const std::string&) override {
    return AnswersYes() ? std::optional<std::string>("Job") : std::nullopt;
  }

  void ShowModal(Form& form) override {
    form.Show();
    modal_.push_back(&form);
    while (form.visible && !life_->watch.HasEnded()) {
      ++since_;
      // Where no step closes it, it goes by itself.
      if (left_ == 0 || (given_ && Next().wait == 0)) break;
      TakeStep(true);
    }
    modal_.pop_back();
    form.Hide();
  }

  void ShowTrayIcon(const std::string&) override { tray_icon_ = true; }
  void RemoveTrayIcon() override { tray_icon_ = false; }

 private:
  static constexpr std::size_t kDeepest = 3;         // steps inside steps inside one at rest
  static constexpr int kMostEvents = 1'000'000;      // of a step at rest
  static constexpr std::int64_t kProgramWeight = 5;  // of its deeds, next to the world's
  inline static const std::string kStart = "start";

  // The program from its start to its end.
  struct Life {
    explicit Life(Player& player)
        : screen(player.world_.machine.With(player, player.world_.machine.Shell(),
                                            player.world_.machine.Keys()),
                 player.world_.machine.Log()),
          watch(player.world_, screen),
          deeds(player.outside_) {
      screen.AddDeeds(deeds, player.tray_icon_);
      screen.ended = [this] { watch.Ended(); };
      screen.job_closed = [] { throw JobClosed(); };
    }
    Screen screen;
    Watch watch;
    Deeds deeds;
  };
  struct JobClosed {};  // a job ends the program from inside

  const Step& Next() const { return (*given_)[given_->size() - left_]; }

  void TakeStep(bool inside) {
    const Step step = given_ ? Next() : ChooseStep(inside);
    --left_;
    Perform(step);
  }

  void StepAtRest() {
    since_ = 0;
    try {
      TakeStep(false);
      if (life_) life_->watch.AtRest(tray_icon_);
    } catch (const JobClosed&) {
      depth_ = 0;
      EndLife();
    }
    if (life_ && life_->watch.HasEnded()) EndLife();
  }

  bool DueInside(int events) const {
    if (!life_ || life_->watch.HasEnded() || depth_ >= kDeepest || left_ == 0) return false;
    return events >= (given_ ? Next().wait : due_) && (!given_ || Next().wait > 0);
  }

  void Inside() {
    if (++since_ > kMostEvents) throw Fault{"x: no end", "too many events"};
    if (DueInside(since_)) TakeStep(true);
  }

  // Boxes stand in front of all windows; clock and world go on behind them.
  bool AnswersYes() {
    const bool yes = yes_;
    ++boxes_;
    Inside();
    --boxes_;
    return yes && !life_->watch.HasEnded();
  }

  bool Possible(const Deed& deed) const {
    if (deed.window && (boxes_ > 0 || !deed.window->visible)) return false;
    if (deed.window && !modal_.empty() && modal_.back() != deed.window) return false;
    return deed.possible();
  }

  Step ChooseStep(bool inside) {
    const Deeds& deeds = life_ ? life_->deeds : outside_;
    std::vector<std::pair<const Deed*, std::int64_t>> possible;
    std::int64_t weights = 0;
    for (std::size_t i = 0; i < deeds.size(); ++i) {
      if (!Possible(deeds[i])) continue;
      possible.push_back({&deeds[i], deeds[i].weight * (i < outside_.size() ? 1 : kProgramWeight)});
      weights += possible.back().second;
    }
    std::int64_t chosen = random_.Below(weights);
    std::size_t i = 0;
    while ((chosen -= possible[i].second) >= 0) ++i;
    const Deed* const deed = possible[i].first;
    return {deed->name + (deed->name == kStart ? RandomJobLine() : ""), inside ? since_ : 0,
            random_.Chance(0.5)};
  }

  std::string RandomJobLine() {
    const auto one_of = [this](std::initializer_list<const char*> texts) {
      return std::string(texts.begin()[random_.Below(std::ssize(texts))]);
    };
    if (random_.Chance(0.4)) return one_of({"", "", "", "", "", "", " -setshell", " /d /bogus"});
    return one_of({"", " /drv C:", " /drv D:", " /drv E:", " /drv d:", " /drv X:",
                   " /dir \"D:\\folder0\"", " /dir \"C:\\folder1\""}) +
           one_of({" /d", " /o", " /c", ""}) + one_of({"", " /t"}) + one_of({"", " /min"}) +
           one_of({"", "", " /down", " /close"}) + one_of({"", "", " /dbg", " /low", " /vssafe"});
  }

  void Perform(const Step& step) {
    const bool start = step.deed.starts_with(kStart);
    const Deeds& deeds = life_ ? life_->deeds : outside_;
    const auto deed = std::find_if(deeds.begin(), deeds.end(), [&](const Deed& candidate) {
      return candidate.name == (start ? kStart : step.deed);
    });
    if (deed == deeds.end() || !Possible(*deed)) return;
    taken_(step);
    due_ = static_cast<int>(since_ + 1 + random_.Below(std::int64_t{1} << random_.Below(10)));
    if (life_ && depth_ > 0) life_->watch.AtStep(tray_icon_);
    ++depth_;
    const bool yes_before = std::exchange(yes_, step.yes);
    if (start) {
      Start(step.deed.substr(std::min(kStart.size() + 1, step.deed.size())));
    } else if (std::set<std::string>{"Analyze", "Defrag", "Optimize", "Compact"}.contains(
                   step.deed)) {
      life_->watch.BeginPass(step.deed);
      deed->act();
      life_->watch.EndRun();
    } else {
      deed->act();
    }
    const bool in_list = step.deed.starts_with("choose");
    if (step.deed == "Select Drive" || in_list) life_->watch.Chosen(in_list);
    if (step.deed == "warning Stop") life_->watch.Stopped();
    if (step.deed == "end of session") life_->watch.Ended();
    yes_ = yes_before;
    --depth_;
    if (life_ && depth_ > 0) life_->watch.AtStep(tray_icon_);
  }

  void Start(const std::string& job_line) {
    EndLife();
    life_ = std::make_unique<Life>(*this);
    life_->watch.BeginJob(job_line);
    life_->screen.Start(job_line);
    life_->watch.EndRun();
  }

  void EndLife() {
    world_.machine.Log().SetObserver({});
    world_.power_off = {};
    life_.reset();
    tray_icon_ = false;
    boxes_ = 0;
    modal_.clear();
    const std::size_t handles = world_.machine.OpenHandles();
    if (handles > 0) throw Fault{"g: handles after the end", std::to_string(handles) + " open"};
  }

  World world_;
  SeededRandom random_;
  Deeds outside_;  // what happens without the program
  std::unique_ptr<Life> life_;
  const std::vector<Step>* given_;
  std::size_t left_;
  const Taken taken_;
  std::size_t depth_ = 0;
  int since_ = 0;  // events since the step at rest began
  int due_ = 1;    // when the next one inside it is to happen, at random
  bool yes_ = false;
  int boxes_ = 0;
  std::vector<const Form*> modal_;
  bool tray_icon_ = false;
};

}  // namespace vornalux::testing
