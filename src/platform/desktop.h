// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>

namespace vornalux {

class Form;  // a window of the program, see forms/

// On boxes that have no title of their own.
inline constexpr const char* kProgramTitle = "Vornalux";

enum class BoxButtons { Ok, YesNo };
enum class BoxIcon { None, Critical, Question, Warning, Information };
enum class BoxAnswer { Ok, Yes, No };

// The user's side: pending events and modal boxes.
class Desktop {
 public:
  virtual ~Desktop() = default;

  // Lets everything that the user or a timer has asked for since the last call happen now. Calls
  // back into the program: a Stop click runs, box included, before this returns.
  virtual void DoEvents() = 0;

  // True when user input waits. Cheap.
  virtual bool InputPending() = 0;

  virtual BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                            BoxIcon icon) = 0;

  // Shows the window in front of all others, which take no input meanwhile, and returns when it is
  // no longer visible or the program is to end. Timers and the window's own controls go on working.
  virtual void ShowModal(Form& form) = 0;

  // One line of text from the user, who finds initial there at first. Nothing when the question was
  // cancelled, or where nobody can be asked.
  virtual std::optional<std::string> InputBox(const std::string& /*prompt*/,
                                              const std::string& /*title*/,
                                              const std::string& /*initial*/) {
    return std::nullopt;
  }

  // The path of a text file to be written, from the user, to whom this name is proposed. Nothing as
  // above.
  virtual std::optional<std::string> SavePath(const std::string& /*title*/,
                                              const std::string& /*initial*/) {
    return std::nullopt;
  }

  // The notification-area icon. A desktop without such an area shows none.
  virtual void ShowTrayIcon(const std::string& /*tooltip*/) {}
  virtual void RemoveTrayIcon() {}
};

}  // namespace vornalux
