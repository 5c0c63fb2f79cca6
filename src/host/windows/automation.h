// SPDX-License-Identifier: GPL-2.0-or-later
// Automation objects, whose methods and properties are looked up by name when they are used.
// Included by source files only.
#pragma once

#include "host/windows/system_headers.h"

// After the one that they need.
#include <ole2.h>
#include <oleauto.h>

#include <string>

#include "platform/shell_objects.h"

namespace vornalux {

// What is passed to an object or comes from it.
class AutomationValue {
 public:
  AutomationValue() { VariantInit(&value_); }
  explicit AutomationValue(const std::string& text);
  explicit AutomationValue(std::int32_t number);
  ~AutomationValue() { VariantClear(&value_); }
  AutomationValue(const AutomationValue&) = delete;
  AutomationValue& operator=(const AutomationValue&) = delete;

  // Empty when it is no text.
  std::string Text() const;
  VARIANT& get() { return value_; }
  const VARIANT& get() const { return value_; }

 private:
  VARIANT value_;
};

class AutomationObject {
 public:
  AutomationObject() = default;
  ~AutomationObject() { Reset(); }
  AutomationObject(const AutomationObject&) = delete;
  AutomationObject& operator=(const AutomationObject&) = delete;

  // The object of a registered class, such as "Wscript.Shell".
  ShellResult Create(const wchar_t* class_name);
  // The object that a value holds; fails when it holds none.
  ShellResult Take(const AutomationValue& value);
  void Reset();

  ShellResult Call(const wchar_t* method, AutomationValue* argument, AutomationValue& result);
  // A property, or an element of a collection.
  ShellResult Get(const wchar_t* property, AutomationValue* argument, AutomationValue& result);
  ShellResult Put(const wchar_t* property, AutomationValue& value);

 private:
  ShellResult Invoke(const wchar_t* name, WORD kind, AutomationValue* argument, VARIANT* result);

  IDispatch* object_ = nullptr;
};

}  // namespace vornalux
