// SPDX-License-Identifier: GPL-2.0-or-later
// The program's windows as its user sees and uses them, from another thread of its process.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/windows/system_headers.h"

namespace vornalux::play {

class Screen {
 public:
  Screen();

  // Called on the program's own thread, once, before its first window.
  void WatchThisThread();
  // Something may have changed.
  void Stir() const { SetEvent(stirred_); }

  // Null while there is no such window. Shown or not.
  HWND Launcher() const;
  HWND Main() const;
  HWND Details() const;
  HWND Debug() const;
  HWND Warning() const;
  HWND Context() const;
  HWND Input() const;
  // The message box on top.
  HWND Box() const;

  // Waits for a change of the windows after which the condition holds. Throws after two minutes,
  // and says what was on the screen.
  void Until(const std::string& what, const std::function<bool()>& holds) const;
  void UntilShown(const std::string& what, HWND (Screen::*window)() const) const;
  // The main window is on the screen and idle.
  void UntilIdle() const;
  // Starts a run by its menu command and waits until it has ended.
  void Run(int command) const;
  int RunsBegun() const { return runs_begun_; }
  // The program sets a timer, or ends one by an interval of 0.
  void NoteTimer(HWND window, UINT_PTR id, UINT interval);
  // What the window's timer of this interval would do now. False when it is not running.
  bool Tick(HWND window, UINT interval) const;
  // The program opens or closes a menu command.
  void NoteMenu(int id, bool enabled);

  static bool Shown(HWND window) { return window != nullptr && IsWindowVisible(window) != FALSE; }
  static std::wstring Kind(HWND window);
  static std::vector<HWND> Children(HWND window);
  static std::string Text(HWND window);
  static std::string Text(HWND dialog, int id) { return Text(GetDlgItem(dialog, id)); }
  static std::string Panel(HWND dialog, int status_bar, int number);
  static std::string BoxText(HWND box) { return Text(box, 0xFFFF); }
  static std::vector<std::string> Rows(HWND list);
  static std::vector<std::string> Items(HWND combo);

  // Fails where the user could not do this.
  void Press(HWND dialog, int id) const;
  void Choose(HWND dialog, int combo, int index) const;
  void Menu(int id) const;
  bool MenuEnabled(int id) const;
  bool MenuChecked(int id) const;
  // Waits for a box with this text, answers it, and waits until it has gone.
  void Answer(const std::string& text, int answer = IDOK) const;

  // Every window of the program without a parent, shown or not, boxes included.
  std::vector<HWND> TopWindows() const;
  // Asks all of them as the system does before it ends the session. The kind of each that refuses.
  std::string Vetoes() const;

  // What an owner-drawn control shows when it is painted anew, row by row, as 0x00BBGGRR.
  static std::vector<std::uint32_t> Picture(HWND dialog, int id, SIZE& size);

  DWORD thread() const { return thread_; }
  // Everything on the screen, for failures.
  std::string Describe() const;

 private:
  std::vector<HWND> Windows() const;
  HWND WindowWith(int control) const;

  HANDLE stirred_;
  DWORD thread_ = 0;
  volatile int runs_begun_ = 0;
  mutable CRITICAL_SECTION timers_lock_;
  std::map<std::pair<HWND, UINT_PTR>, UINT> timers_;  // intervals
};

}  // namespace vornalux::play
