// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/windows/system_headers.h"
#include "platform/desktop.h"

namespace vornalux {

// What the icon in the notification area reports the mouse by: in the guise of its moves.
inline constexpr UINT kTrayMessage = WM_MOUSEMOVE;

// The user of a Windows session: messages of this thread, boxes, the notification area.
class WindowsDesktop final : public Desktop {
 public:
  ~WindowsDesktop() override { RemoveTrayIcon(); }

  // Whose icon the notification area shows, and who hears of the mouse over it.
  void SetTrayOwner(HWND owner) { owner_ = owner; }

  // Told after each attempt to have the icon in the notification area whether it is there; without
  // one something else has to lead back to the program.
  std::function<void(bool shown)> tray_icon_tried;
  // The notification area has come anew: puts an icon that it should have.
  void RestoreTrayIcon();

  // What the icon says from now on, while there is one.
  void SetTrayTip(const std::string& tooltip);
  // Says so beside the icon, while there is one.
  void TellAtTrayIcon(const std::string& title, const std::string& text);

  // From now on boxes close themselves, unanswered, before the system loses its patience.
  void HurryBoxes() { hurry_ = true; }

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
  std::optional<std::string> SavePath(const std::string& title,
                                      const std::string& initial) override;
  void ShowTrayIcon(const std::string& tooltip) override;
  void RemoveTrayIcon() override;

 private:
  void Handle(MSG& message);
  void PutTrayIcon();

  HWND owner_ = nullptr;
  std::optional<std::string> tray_tip_;  // while an icon is wanted
  bool hurry_ = false;
  bool icon_shown_ = false;
  bool ended_ = false;
};

}  // namespace vornalux
