// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <utility>

namespace vornalux {

// Something whose changes a host may want to show. At most one host watches.
class Observable {
 public:
  Observable() = default;
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;
  virtual ~Observable() = default;

  std::function<void()> changed;

  virtual void NotifyChanged() const {
    if (changed) changed();
  }
};

// A value of a control. Assigning another value tells the control's watcher.
template <typename T>
class Property {
 public:
  Property(const Observable& owner, T initial) : owner_(owner), value_(std::move(initial)) {}
  Property(const Property&) = delete;

  Property& operator=(T value) {
    if (!(value == value_)) {
      value_ = std::move(value);
      owner_.NotifyChanged();
    }
    return *this;
  }
  Property& operator=(const Property& other) { return *this = other.value_; }

  operator const T&() const { return value_; }  // NOLINT: reads like the value
  const T& get() const { return value_; }

 private:
  const Observable& owner_;
  T value_;
};

// What the user or a timer does to a control; the window puts its procedure here.
using Event = std::function<void()>;

inline void Raise(const Event& event) {
  if (event) event();
}

}  // namespace vornalux
