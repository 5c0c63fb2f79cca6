// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "forms/property.h"
#include "platform/types.h"

namespace vornalux {

class Control : public Observable {
 public:
  Property<bool> enabled{*this, true};
  Property<bool> visible{*this, true};
};

class Label : public Control {
 public:
  explicit Label(std::string text = {}, Colour colour = 0)
      : caption(*this, std::move(text)), fore_colour(*this, colour) {}

  Property<std::string> caption;
  Property<Colour> fore_colour;
  Event click;
};

// A control with a caption that does something when it is used. Disabled ones do nothing.
class CommandControl : public Control {
 public:
  explicit CommandControl(std::string text = {}) : caption(*this, std::move(text)) {}

  Property<std::string> caption;
  std::string tool_tip;  // empty for none
  Event click;

  void Click() {
    if (enabled) Raise(click);
  }
};

class Button : public CommandControl {
 public:
  using CommandControl::CommandControl;
  Property<bool> marked{*this, false};  // what it stands for is what is shown
};

class MenuItem : public CommandControl {
 public:
  using CommandControl::CommandControl;
  Property<bool> checked{*this, false};  // what it switches is on
};

// Option buttons and check boxes: Click() gives them their value, then runs the event.
class OptionButton : public CommandControl {
 public:
  using CommandControl::CommandControl;
  Property<bool> value{*this, false};

  void Click() {
    if (!enabled) return;
    value = true;
    Raise(click);
  }
};

class CheckBox : public CommandControl {
 public:
  explicit CheckBox(std::string text = {}, std::string tip = {}) : CommandControl(std::move(text)) {
    tool_tip = std::move(tip);
  }
  Property<bool> value{*this, false};

  void Click() {
    if (!enabled) return;
    value = !value;
    Raise(click);
  }
};

class Frame : public Control {
 public:
  explicit Frame(std::string text = {}) : caption(*this, std::move(text)) {}
  Property<std::string> caption;
};

// Value always lies within Minimum and Maximum.
class ProgressBar : public Control {
 public:
  Property<std::int64_t> minimum{*this, 0};
  Property<std::int64_t> maximum{*this, 1};
  Property<std::int64_t> value{*this, 0};

  void SetRange(std::int64_t low, std::int64_t high) {
    minimum = low;
    maximum = std::max(low, high);
    SetValue(value);
  }
  void SetValue(std::int64_t wanted) { value = std::clamp(wanted, minimum.get(), maximum.get()); }
};

class TextBox : public Control {
 public:
  Property<std::string> text{*this, {}};
  // For the window that the box is in; changed is the host's.
  Event change;

  void NotifyChanged() const override {
    Raise(change);
    Control::NotifyChanged();
  }
};

// A text that only grows, with a watcher that is told what was added.
class LogBox : public Control {
 public:
  std::function<void(std::string_view)> appended;

  const std::string& text() const { return text_; }
  void Append(std::string_view more) {
    text_ += more;
    if (appended) appended(more);
  }
  void Clear() {
    text_.clear();
    NotifyChanged();
  }

 private:
  std::string text_;
};

// A coloured rectangle.
class Shape : public Control {
 public:
  explicit Shape(Colour colour = 0) : fill_colour(*this, colour) {}
  Property<Colour> fill_colour;
};

// The host raises tick every interval while enabled, from within pending events only.
class Timer : public Control {
 public:
  explicit Timer(std::int32_t milliseconds) : interval(milliseconds) { enabled = false; }
  const std::int32_t interval;
  Event tick;
};

// Rows of one column.
class ListView : public Control {
 public:
  explicit ListView(std::string heading) : column_heading(std::move(heading)) {}

  const std::string column_heading;

  const std::vector<std::string>& rows() const { return rows_; }
  void Add(const std::string& row) {
    rows_.push_back(row);
    NotifyChanged();
  }
  void Clear() {
    rows_.clear();
    NotifyChanged();
  }

 private:
  std::vector<std::string> rows_;
};

// A drop-down list. Choosing an item runs the event, also when it was chosen already.
class ComboBox : public Control {
 public:
  Property<std::int32_t> list_index{*this, -1};  // the chosen item; -1 for none
  Event change;

  const std::vector<std::string>& items() const { return items_; }
  // The number of the picture beside each item, by the host's list of pictures; -1 for none.
  const std::vector<std::int32_t>& images() const { return images_; }
  void Add(const std::string& item, std::int32_t image = -1) {
    items_.push_back(item);
    images_.push_back(image);
    NotifyChanged();
  }
  void Clear() {
    items_.clear();
    images_.clear();
    list_index = -1;
    NotifyChanged();
  }
  // Nothing when there is no such item.
  void Choose(std::int32_t index) {
    if (!enabled || index < 0 || index >= std::ssize(items_)) return;
    list_index = index;
    Raise(change);
  }

 private:
  std::vector<std::string> items_;
  std::vector<std::int32_t> images_;
};

enum class WindowState { Normal, Minimized };

class Form : public Observable {
 public:
  explicit Form(std::string text = {}) : caption(*this, std::move(text)) {}

  Property<std::string> caption;
  Property<bool> visible{*this, false};
  Property<WindowState> window_state{*this, WindowState::Normal};

  void Show() { visible = true; }
  // Also when it is shown already: behind another window, or minimized.
  void ShowInFront() {
    Show();
    Raise(to_front);
  }
  void Hide() { visible = false; }
  void Unload() {
    visible = false;
    Raise(unloaded);
  }

  Event unloaded;
  Event to_front;  // set by the host
};

}  // namespace vornalux
