// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/system_headers.h"
#include "platform/desktop.h"

namespace vornalux {

// The user of a Windows session: messages of this thread, boxes, the notification area.
class WindowsDesktop final : public Desktop {
 public:
  ~WindowsDesktop() override { RemoveTrayIcon(); }

  // Whose icon the notification area shows, and who hears of the mouse over it.
  void SetTrayOwner(HWND owner) { owner_ = owner; }

  // Handles messages until the program is to end.
  void Run();
  bool Ended() const { return ended_; }

  void DoEvents() override;
  bool InputPending() override { return GetInputState() != 0; }
  BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                    BoxIcon icon) override;
  // For forms with a native side.
  void ShowModal(Form& form) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& initial) override;
  void ShowTrayIcon(const std::string& tooltip) override;
  void RemoveTrayIcon() override;

 private:
  void Handle(MSG& message);

  HWND owner_ = nullptr;
  bool icon_shown_ = false;
  bool ended_ = false;
};

}  // namespace vornalux
