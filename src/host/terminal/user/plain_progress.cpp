// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/user/plain_progress.h"

#include "text/quantity_text.h"

namespace vornalux {
namespace {

// A log of a long run stays readable.
constexpr int kStep = 10;  // percent
constexpr auto kPause = std::chrono::seconds(5);

}  // namespace

bool IsPhase(const std::string& caption) {
  return !caption.empty() && !caption.starts_with("Volume ");
}

void PlainProgress::ShowPhase(const std::string& caption, TimePoint now) {
  percent_ = 0;
  printed_ = now;
  if (!IsPhase(caption)) return;
  console_.PrintIfReady(PrintableText(caption, console_.Characters()) + "\n");
}

void PlainProgress::Show(const ProgressState& state, TimePoint now) {
  const int percent = Percent(state).value_or(0);
  if (percent < percent_ + kStep || now - printed_ < kPause) return;
  percent_ = percent - percent % kStep;
  printed_ = now;
  console_.PrintIfReady("  " + std::to_string(percent) + "%" +
                        (state.left ? ", " + ClockText(*state.left) + " left" : "") + "\n");
}

}  // namespace vornalux
