// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "platform/desktop.h"
#include "user/screen.h"
#include "user/watch.h"
#include "user/world.h"

namespace vornalux::testing {

// The user, his clock and the world, for one sequence of steps: at random, or as given. Steps also
// happen inside the events of what a step runs, up to a depth.
class Player final : public Desktop {
 public:
  // The seed makes the volumes, and the steps where none are given.
  explicit Player(std::uint64_t seed);

  std::optional<Fault> PlayAtRandom(std::size_t steps);
  // Steps that are not possible when their turn comes are left out.
  std::optional<Fault> Replay(const std::vector<Step>& steps);

  const std::vector<Step>& Played() const { return played_; }
  std::size_t Events() const { return events_; }

  void DoEvents() override;
  bool InputPending() override;
  BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                    BoxIcon icon) override;
  void ShowModal(Form& form) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& initial) override;
  void ShowTrayIcon(const std::string&) override { tray_icon_ = true; }
  void RemoveTrayIcon() override { tray_icon_ = false; }

 private:
  // The program from its start to its end.
  struct Life {
    explicit Life(Player& player);
    Screen screen;
    Watch watch;
    Deeds deeds;
  };
  struct JobClosed {};  // how a job ends the program from inside

  std::optional<Fault> Play();
  void StepAtRest();
  bool StepsLeft() const;
  bool DueInside() const;
  // Takes the next step where something runs. False when there is none that could be taken now.
  bool StepInside();
  bool ChooseStep(bool inside, Step& step);
  const Deed* Find(const std::string& name) const;
  bool Possible(const Deed& deed) const;
  void Perform(const Step& step, const Deed& deed);
  void Start(const std::string& job_line);
  void EndLife();
  void Inside();
  std::string RandomJobLine();

  World world_;
  SeededRandom random_;
  std::unique_ptr<Life> life_;
  Deeds outside_;  // what happens without the program
  const std::vector<Step>* given_ = nullptr;
  std::size_t next_ = 0;  // of those given
  std::size_t left_ = 0;  // of those at random
  std::vector<Step> played_;
  int since_ = 0;  // events since the step at rest began
  int due_ = 1;    // when the next one inside it is to happen, at random
  std::size_t depth_ = 0;
  std::size_t events_ = 0;
  std::size_t events_in_step_ = 0;
  bool yes_ = false;
  int boxes_open_ = 0;
  std::vector<const Form*> modal_;
  bool tray_icon_ = false;
};

}  // namespace vornalux::testing
