// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/scripted_desktop.h"

#include <stdexcept>
#include <utility>

#include "forms/controls.h"

namespace vornalux {
namespace {

std::optional<std::string> Next(std::deque<std::string>& answers) {
  if (answers.empty()) return std::nullopt;
  std::string text = std::move(answers.front());
  answers.pop_front();
  return text;
}

}  // namespace

void ScriptedDesktop::AtDoEvents(std::size_t nth, std::function<void()> action) {
  at_do_events_.emplace(nth, std::move(action));
}

void ScriptedDesktop::AtEveryDoEvents(std::function<void()> action) {
  at_every_do_events_ = std::move(action);
}

void ScriptedDesktop::DoEvents() {
  const std::size_t now = ++do_events_;
  if (log_ != nullptr) {
    log_->Add(CallKind::DoEvents, {}, kInvalidHandle, {static_cast<std::int64_t>(now), 0, 0}, 0);
  }
  if (at_every_do_events_) at_every_do_events_();
  // Actions may plan further ones, so each is taken out before it runs.
  for (auto planned = at_do_events_.find(now); planned != at_do_events_.end();
       planned = at_do_events_.find(now)) {
    const std::function<void()> action = std::move(planned->second);
    at_do_events_.erase(planned);
    action();
  }
}

bool ScriptedDesktop::InputPending() {
  const bool pending = pending_at_.contains(++input_pending_);
  if (log_ != nullptr) {
    log_->Add(CallKind::InputPending, {}, kInvalidHandle, {pending ? 1 : 0, 0, 0}, 0);
  }
  return pending;
}

BoxAnswer ScriptedDesktop::ShowBox(const std::string& text, const std::string& title,
                                   BoxButtons buttons, BoxIcon icon) {
  ShownBox box{.text = text, .title = title, .buttons = buttons, .icon = icon};
  if (buttons == BoxButtons::YesNo) {
    box.answer = BoxAnswer::No;
    if (!answers_.empty()) {
      box.answer = answers_.front();
      answers_.pop_front();
    }
  }
  boxes_.push_back(box);
  if (log_ != nullptr) {
    log_->Add(CallKind::ShowBox, text, kInvalidHandle,
              {static_cast<std::int64_t>(buttons), static_cast<std::int64_t>(icon),
               static_cast<std::int64_t>(box.answer)},
              0);
  }
  return box.answer;
}

void ScriptedDesktop::ShowModal(Form& form) {
  modals_.push_back(form.caption);
  form.Show();
  while (form.visible) {
    if (modal_steps_.empty()) {
      throw std::logic_error("nobody closes the window " + form.caption.get());
    }
    const std::function<void()> step = std::move(modal_steps_.front());
    modal_steps_.pop_front();
    step();
  }
}

std::optional<std::string> ScriptedDesktop::InputBox(const std::string& prompt,
                                                     const std::string& title,
                                                     const std::string& initial) {
  input_boxes_.push_back(title + "|" + prompt + "|" + initial);
  return Next(typed_);
}

std::optional<std::string> ScriptedDesktop::SavePath(const std::string& title,
                                                     const std::string& initial) {
  input_boxes_.push_back(title + "|" + initial);
  return Next(save_as_);
}

}  // namespace vornalux
