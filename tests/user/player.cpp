// SPDX-License-Identifier: GPL-2.0-or-later
#include "user/player.h"

#include <algorithm>

namespace vornalux::testing {
namespace {

constexpr std::size_t kDeepest = 3;
constexpr std::size_t kMostEvents = 1'000'000;  // of a step at rest
constexpr const char* kStart = "start";

bool IsPass(const std::string& deed) {
  return deed == "Analyze" || deed == "Defrag" || deed == "Optimize" || deed == "Compact";
}

}  // namespace

Player::Life::Life(Player& player)
    : screen(player.world_.machine.With(player, player.world_.machine.Shell(),
                                        player.world_.machine.Keys()),
             player.world_.machine.Log()),
      watch(player.world_, screen),
      deeds(player.outside_) {
  screen.AddDeeds(deeds, [&player] { return player.tray_icon_; });
  screen.ended = [this] { watch.Ended(); };
  screen.job_closed = [] { throw JobClosed(); };
  player.world_.power_off = [this] { watch.PowersOff(); };
}

Player::Player(std::uint64_t seed) : world_(seed), random_(seed) {
  world_.AddDeeds(outside_);
  outside_.push_back({kStart, 6, nullptr, [this] { return depth_ == 0; }, {}});
}

std::optional<Fault> Player::PlayAtRandom(std::size_t steps) {
  left_ = steps;
  return Play();
}

std::optional<Fault> Player::Replay(const std::vector<Step>& steps) {
  given_ = &steps;
  return Play();
}

std::optional<Fault> Player::Play() {
  std::optional<Fault> fault;
  try {
    while (StepsLeft()) StepAtRest();
  } catch (const Fault& found) {
    fault = found;
  } catch (const std::exception& thrown) {
    fault = Fault{"x: exception", thrown.what()};
  }
  if (life_) world_.machine.Log().SetObserver({});
  try {
    EndLife();
  } catch (const Fault& found) {
    if (!fault) fault = found;
  }
  return fault;
}

void Player::StepAtRest() {
  Step step;
  if (!ChooseStep(false, step)) return;
  events_in_step_ = 0;
  const Deed* const deed = Find(step.deed);
  if (deed == nullptr || !Possible(*deed)) return;
  try {
    Perform(step, *deed);
    if (life_) life_->watch.AtRest(tray_icon_);
    if (life_ && life_->watch.HasEnded()) EndLife();
  } catch (const JobClosed&) {
    depth_ = 0;
    boxes_open_ = 0;
    modal_.clear();
    EndLife();
  }
}

// What the program leaves open, the system closes; here it would be a leak.
void Player::EndLife() {
  if (life_) world_.machine.Log().SetObserver({});
  world_.power_off = {};
  life_.reset();
  tray_icon_ = false;
  if (const std::size_t handles = world_.machine.OpenHandles()) {
    throw Fault{"g: handles after the end", std::to_string(handles) + " open"};
  }
}

bool Player::StepsLeft() const { return given_ != nullptr ? next_ < given_->size() : left_ > 0; }

bool Player::DueInside() const {
  if (!life_ || life_->watch.HasEnded() || depth_ >= kDeepest || !StepsLeft()) return false;
  if (given_ == nullptr) return since_ >= due_;
  return (*given_)[next_].wait > 0 && since_ >= (*given_)[next_].wait;
}

const Deed* Player::Find(const std::string& name) const {
  const Deeds& deeds = life_ ? life_->deeds : outside_;
  const bool start = name.starts_with(kStart);
  const auto found = std::find_if(deeds.begin(), deeds.end(), [&](const Deed& deed) {
    return deed.name == (start ? kStart : name);
  });
  return found == deeds.end() ? nullptr : &*found;
}

bool Player::Possible(const Deed& deed) const {
  if (deed.window != nullptr) {
    if (boxes_open_ > 0 || !deed.window->visible) return false;
    if (!modal_.empty() && modal_.back() != deed.window) return false;
  }
  return !deed.possible || deed.possible();
}

bool Player::ChooseStep(bool inside, Step& step) {
  if (given_ != nullptr) {
    step = (*given_)[next_++];
    return true;
  }
  --left_;
  // First a choice between the program and the rest of the world.
  const Deeds& deeds = life_ ? life_->deeds : outside_;
  const std::size_t first = life_ && random_.Chance(0.75) ? outside_.size() : 0;
  std::int64_t weights = 0;
  std::vector<const Deed*> possible;
  for (std::size_t i = first; i < deeds.size(); ++i) {
    if (!Possible(deeds[i])) continue;
    possible.push_back(&deeds[i]);
    weights += deeds[i].weight;
  }
  std::int64_t chosen = random_.Below(weights);
  const auto deed =
      std::find_if(possible.begin(), possible.end(),
                   [&chosen](const Deed* candidate) { return (chosen -= candidate->weight) < 0; });
  step = {(*deed)->name, inside ? since_ : 0, random_.Chance(0.5)};
  if (step.deed == kStart) step.deed += RandomJobLine();
  return true;
}

std::string Player::RandomJobLine() {
  if (random_.Chance(0.4)) return "";
  const auto one_of = [this](std::initializer_list<const char*> texts) {
    return std::string(texts.begin()[random_.Below(std::ssize(texts))]);
  };
  const std::string line = one_of({"", " /drv C:", " /drv D:", " /drv E:", " /drv d:", " /drv X:",
                                   " /dir \"D:\\folder0\"", " /dir \"C:\\folder1\""}) +
                           one_of({" /d", " /o", " /c", ""}) + one_of({"", " /min"}) +
                           one_of({"", " /down", " /close", ""}) +
                           one_of({"", "", " /dbg", " /low", " /vssafe"});
  return random_.Chance(0.05) ? " -setshell" : random_.Chance(0.05) ? line + " /bogus" : line;
}

void Player::Perform(const Step& step, const Deed& deed) {
  played_.push_back(step);
  const bool yes_before = yes_;
  yes_ = step.yes;
  if (depth_ == 0) since_ = 0;
  due_ = static_cast<int>(since_ + 1 + random_.Below(std::int64_t{1} << random_.Below(10)));
  if (life_ && depth_ > 0) life_->watch.AtStep(tray_icon_);
  ++depth_;
  const bool pass = IsPass(step.deed);
  if (pass) life_->watch.BeginPass();
  if (deed.name == kStart) {
    Start(step.deed.substr(std::min(step.deed.size(), std::string(kStart).size() + 1)));
  } else {
    deed.act();
  }
  if (pass) life_->watch.EndPass();
  if (step.deed == "Select Drive" || step.deed.starts_with("choose")) life_->watch.Chosen();
  if (step.deed == "warning Stop") life_->watch.Stopped();
  if (step.deed == "end of session") life_->watch.Ended();
  --depth_;
  yes_ = yes_before;
  if (life_ && depth_ > 0) life_->watch.AtStep(tray_icon_);
}

void Player::Start(const std::string& job_line) {
  EndLife();
  life_ = std::make_unique<Life>(*this);
  life_->watch.BeginJob(job_line);
  life_->screen.Start(job_line);
  life_->watch.EndJob();
}

bool Player::StepInside() {
  Step step;
  if (!ChooseStep(true, step)) return false;
  const Deed* const deed = Find(step.deed);
  if (deed != nullptr && Possible(*deed)) Perform(step, *deed);
  return true;
}

void Player::Inside() {
  ++since_;
  ++events_;
  if (++events_in_step_ > kMostEvents) throw Fault{"x: no end", "too many events"};
  if (DueInside()) StepInside();
}

void Player::DoEvents() {
  if (life_) life_->watch.AtEvent();
  Inside();
}

bool Player::InputPending() {
  ++since_;
  const bool pending = DueInside();
  --since_;
  return pending;
}

BoxAnswer Player::ShowBox(const std::string&, const std::string& title, BoxButtons buttons,
                          BoxIcon) {
  const bool yes = yes_;
  if (life_) life_->watch.Box();
  ++boxes_open_;
  Inside();
  --boxes_open_;
  if (buttons == BoxButtons::Ok) return BoxAnswer::Ok;
  if (!yes || life_->watch.HasEnded()) return BoxAnswer::No;
  if (title == "Paused ...") life_->watch.Stopped();
  return BoxAnswer::Yes;
}

void Player::ShowModal(Form& form) {
  form.Show();
  modal_.push_back(&form);
  while (form.visible && !life_->watch.HasEnded()) {
    ++since_;
    const bool next_is_inside = StepsLeft() && (given_ == nullptr || (*given_)[next_].wait > 0);
    if (!next_is_inside || !StepInside()) form.Unload();
  }
  modal_.pop_back();
  form.Hide();
}

std::optional<std::string> Player::InputBox(const std::string&, const std::string&,
                                            const std::string&) {
  const bool yes = yes_;
  ++boxes_open_;
  Inside();
  --boxes_open_;
  if (!yes) return std::nullopt;
  return "Job";
}

}  // namespace vornalux::testing
