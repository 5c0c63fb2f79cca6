// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/simulated/call_log.h"
#include "platform/desktop.h"

namespace vornalux {

struct ShownBox {
  std::string text;
  std::string title;
  BoxButtons buttons = BoxButtons::Ok;
  BoxIcon icon = BoxIcon::None;
  BoxAnswer answer = BoxAnswer::Ok;
};

// A user who does at each moment what a script says, and remembers every box.
class ScriptedDesktop final : public Desktop {
 public:
  // log is not owned and hears of every call; may be null.
  explicit ScriptedDesktop(CallLog* log = nullptr) : log_(log) {}

  // Runs action inside the nth DoEvents(), counted from 1 over the desktop's life. Actions may call
  // DoEvents() themselves.
  void AtDoEvents(std::size_t nth, std::function<void()> action);
  // Runs action inside every DoEvents(), before the one planned for it.
  void AtEveryDoEvents(std::function<void()> action);
  std::size_t DoEventsCount() const { return do_events_; }

  // What the next Yes/No box without an answer yet gets. Without any: No.
  void Answer(BoxAnswer answer) { answers_.push_back(answer); }
  std::size_t AnswersLeft() const { return answers_.size(); }
  const std::vector<ShownBox>& Boxes() const { return boxes_; }
  // What the next input box without an answer yet gets. Without any: it is cancelled.
  void Type(std::string text) { typed_.push_back(std::move(text)); }
  // What the next dialog for a file's name without an answer yet gets. Without any: it is
  // cancelled.
  void SaveAs(std::string path) { save_as_.push_back(std::move(path)); }
  // Every input box as "title|prompt|initial", every dialog for a file's name as "title|initial".
  const std::vector<std::string>& InputBoxes() const { return input_boxes_; }

  // What happens while a window is up alone, step by step: ticks of its timer, presses of its
  // buttons. A window that no step closes is a fault in the script and throws.
  void WhileModal(std::function<void()> step) { modal_steps_.push_back(std::move(step)); }
  std::size_t ModalStepsLeft() const { return modal_steps_.size(); }
  // Captions of the windows that were shown so.
  const std::vector<std::string>& Modals() const { return modals_; }

  // Makes the nth InputPending(), from 1, say yes; all others say no.
  void PendInputAt(std::size_t nth) { pending_at_.insert(nth); }

  void DoEvents() override;
  bool InputPending() override;
  BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                    BoxIcon icon) override;
  void ShowModal(Form& form) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& initial) override;
  std::optional<std::string> SavePath(const std::string& title,
                                      const std::string& initial) override;

 private:
  CallLog* log_;
  std::multimap<std::size_t, std::function<void()>> at_do_events_;
  std::function<void()> at_every_do_events_;
  std::size_t do_events_ = 0;
  std::deque<BoxAnswer> answers_;
  std::vector<ShownBox> boxes_;
  std::deque<std::function<void()>> modal_steps_;
  std::vector<std::string> modals_;
  std::deque<std::string> typed_;
  std::deque<std::string> save_as_;
  std::vector<std::string> input_boxes_;
  std::set<std::size_t> pending_at_;
  std::size_t input_pending_ = 0;
};

}  // namespace vornalux
