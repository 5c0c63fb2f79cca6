// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "forms/controls.h"
#include "forms/picture_box.h"
#include "host/windows/system_headers.h"
#include "ui/defrag_window.h"

namespace vornalux {

// A form as a native dialog. Each control of the form is bound to the dialog's control of a
// resource id: changes of its properties show, and what the user does raises its events. A bound
// control decides nothing. Forms and controls outlive their native side.
class NativeForm {
 public:
  NativeForm(Form& form, int dialog_id);
  virtual ~NativeForm();
  NativeForm(const NativeForm&) = delete;
  NativeForm& operator=(const NativeForm&) = delete;

  HWND window() const { return window_; }

  // The native side of a form; null when it has none.
  static NativeForm* Of(const Form& form);

  static bool Owns(HWND window);

  // From now on until the form goes out of sight no other window of the program takes input.
  void BecomeModal();

  // While the user is asked or told something: the windows that commands come from take no input,
  // so that there is one box at a time, whatever program is in front.
  class Asking {
   public:
    Asking();
    ~Asking();
    Asking(const Asking&) = delete;
    Asking& operator=(const Asking&) = delete;

    // Whom the box belongs to, which holds that window by itself. Null while none is on the screen.
    HWND owner() const { return owner_; }

   private:
    HWND owner_ = nullptr;
    std::vector<HWND> held_;
  };

  // Whichever of the two comes into sight while the other is there, or stays when the other goes,
  // takes the other's place and size.
  void SharePlaceWith(NativeForm& other);

  // What closes the program from outside: the session ends, or somebody closes a window that stands
  // for the program. Set for as long as there are windows.
  static std::function<void(CloseReason)> close_program;

  // What F1 opens in every window.
  static std::function<void()> open_help;

  // Lets a dialog take its keyboard messages; for the message loop.
  static bool TakesMessage(MSG& message);

 protected:
  void Bind(int id, Label& label);
  void Bind(int id, Button& button);
  void Bind(int id, Frame& frame);
  void Bind(int id, OptionButton& option);
  void Bind(int id, CheckBox& box);
  void Bind(int id, TextBox& box);
  void Bind(int id, LogBox& log);
  void Bind(int id, ProgressBar& bar);
  void Bind(int id, ListView& list);
  void Bind(int id, ComboBox& combo);
  void Bind(int id, Shape& shape);
  void Bind(int id, PictureBox& picture);
  void Bind(int id, MenuItem& item);
  void Bind(Timer& timer);

  HWND Item(int id) const { return GetDlgItem(window_, id); }
  virtual void ShowState(int id, const Control& control) const;
  void SetState(int id, bool visible, bool enabled) const;
  // Of a menu's item.
  void ShowCheck(UINT id, bool checked) const;
  // What the native side makes of other messages. True: handled.
  virtual bool OnMessage(UINT message, WPARAM wparam, LPARAM lparam, INT_PTR& result);
  // The user closes the window by its close box or its system menu, or presses Escape in it.
  virtual void OnCloseBox() { form_.Hide(); }
  // Somebody else closes it.
  virtual void OnClose() { OnCloseBox(); }
  virtual void OnEscape() { OnCloseBox(); }
  // A key of the window's own, down, with Alt or without. False: none of those.
  virtual bool OnKey(WPARAM /*key*/, bool /*alt*/) { return false; }
  // What the user asks of the program begins in this window.
  virtual bool TakesCommands() const { return false; }
  // The form is unloaded.
  virtual void OnUnload();
  // Pixels, with the frame; a dialog of fixed size has no other.
  virtual SIZE LeastSize() const;
  // Place: on the screen, with the frame. Comes as near to it as its own least size and what can be
  // seen of the screen allow.
  virtual void TakePlace(const RECT& place);
  // What paints an owner-drawn control.
  using Painter = std::function<void(HDC, const RECT&)>;
  void PaintBy(int id, Painter painter) { painters_[id] = std::move(painter); }
  void AddToolTip(int id, const std::string& text);
  // What the label says is seen though no message is handled for a while; after Bind().
  void ShowAtOnce(Label& label);
  // A derived window undoes here what it has bound by itself.
  void AtEnd(std::function<void()> undo) { unbind_.push_back(std::move(undo)); }

 private:
  static INT_PTR CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  bool TakesKey(const MSG& message);
  INT_PTR Handle(UINT message, WPARAM wparam, LPARAM lparam);
  void ShowForm();
  void ComeToFront();
  bool OnScreen() const { return IsWindowVisible(window_) && !IsIconic(window_); }
  void EndModal();
  void Hold(HWND window);
  void BindCheck(int id, CommandControl& control, Property<bool>& value);
  void OnCommand(int id, int notification);
  INT_PTR ColourText(HDC dc, int id);
  void Paint(const DRAWITEMSTRUCT& item);

  Form& form_;
  HWND window_ = nullptr;
  std::map<int, std::function<void(int notification)>> commands_;
  std::map<int, const Label*> labels_;
  std::map<int, Painter> painters_;
  static constexpr UINT_PTR kFirstTimer = 1;  // the number of the first of them
  std::vector<Timer*> timers_;
  std::vector<std::function<void()>> unbind_;
  NativeForm* shares_place_ = nullptr;
  static NativeForm* modal_;
  std::vector<HWND> held_;  // take no input because of this window
  HWND tool_tips_ = nullptr;
  bool pushing_ = false;  // the change in hand is ours, not the user's
};

}  // namespace vornalux
