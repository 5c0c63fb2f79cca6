// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "host/terminal/display/styled_line.h"

namespace vornalux {

struct ScreenSize {
  int columns = 80;
  int rows = 24;

  friend bool operator==(const ScreenSize&, const ScreenSize&) = default;
};

// A key that was pressed: a character, or one of these.
using Key = int;
namespace key {
inline constexpr Key kEscape = 27;
inline constexpr Key kUp = 256;
inline constexpr Key kDown = 257;
inline constexpr Key kPageUp = 258;
inline constexpr Key kPageDown = 259;
inline constexpr Key kHome = 260;
inline constexpr Key kEnd = 261;
}  // namespace key

// A terminal as a whole. What is drawn on it disappears when it is given back.
class Screen {
 public:
  virtual ~Screen() = default;

  virtual Look look() const = 0;
  virtual ScreenSize Size() const = 0;

  // Takes the terminal, also anew after the program was suspended. False while another program has
  // it. Drawn tells whether what was sent before is still on it.
  virtual bool Take(bool& drawn) = 0;
  // Gives it back as it was.
  virtual void Release() = 0;

  // Everything that was sent has gone out.
  virtual bool Ready() = 0;
  // Never waits: what the terminal does not take now goes out with later calls of Ready(). To be
  // called when Ready() only.
  virtual void Send(std::string_view text) = 0;

  // The next key, waited for at most this long.
  virtual std::optional<Key> ReadKey(std::chrono::milliseconds wait) = 0;
};

}  // namespace vornalux
