// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/progress_line.h"

#include <algorithm>
#include <cstddef>

namespace vornalux {
namespace {

constexpr int kBarColumns = 20;
constexpr int kLeastItemColumns = 12;
constexpr auto kLeastElapsed = std::chrono::seconds(2);
constexpr std::int64_t kLeastShare = 50;  // a 50th of the way

std::string Bar(std::int64_t done, std::int64_t total, Charset charset) {
  const auto full = static_cast<int>(static_cast<double>(kBarColumns) * static_cast<double>(done) /
                                     static_cast<double>(total));
  std::string bar;
  for (int i = 0; i < kBarColumns; ++i) {
    if (charset == Charset::Utf8) {
      bar += i < full ? "\xE2\x96\x88" : "\xE2\x96\x91";
    } else {
      bar += i < full ? '#' : '-';
    }
  }
  return bar;
}

std::string TwoDigits(std::int64_t number) {
  return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
}

}  // namespace

std::optional<int> Percent(const ProgressState& state) {
  if (state.total <= 0) return std::nullopt;
  const std::int64_t done = std::clamp<std::int64_t>(state.done, 0, state.total);
  return static_cast<int>(static_cast<double>(done) / static_cast<double>(state.total) * 100);
}

std::string ClockText(std::chrono::seconds duration) {
  const std::int64_t seconds = std::max<std::int64_t>(duration.count(), 0);
  const std::string end = ":" + TwoDigits(seconds % 60);
  const std::int64_t minutes = seconds / 60;
  if (minutes < 60) return std::to_string(minutes) + end;
  return std::to_string(minutes / 60) + ":" + TwoDigits(minutes % 60) + end;
}

std::string ProgressText(const ProgressState& state, int columns, Charset charset) {
  std::string line;
  int used = 0;
  const auto add = [&](const std::string& part, int part_columns) {
    const int gap = line.empty() ? 0 : 2;
    if (part.empty() || used + gap + part_columns > columns) return;
    line.append(static_cast<std::size_t>(gap), ' ');
    line += part;
    used += gap + part_columns;
  };
  const std::string phase = PrintableText(state.phase, charset);
  add(phase, DisplayWidth(phase, charset));
  if (const std::optional<int> percent = Percent(state)) {
    const std::int64_t done = std::clamp<std::int64_t>(state.done, 0, state.total);
    add(Bar(done, state.total, charset), kBarColumns);
    const std::string number = std::to_string(*percent);
    add(std::string(3 - std::min<std::size_t>(number.size(), 3), ' ') + number + "%", 4);
  }
  if (state.left) {
    const std::string left = ClockText(*state.left) + " left";
    add(left, static_cast<int>(left.size()));
  }
  const int room = columns - used - 2;
  if (room >= kLeastItemColumns) {
    const std::string item = ShortenedText(state.item, room, charset);
    add(item, DisplayWidth(item, charset));
  }
  return line;
}

std::optional<std::chrono::seconds> TimeLeft::Update(TimePoint now, std::int64_t done,
                                                     std::int64_t total) {
  if (total != total_ || done < done_) {
    started_ = now;
    done_at_start_ = done;
    total_ = total;
  }
  done_ = done;
  const auto elapsed = now - started_;
  const std::int64_t seen = done - done_at_start_;
  if (elapsed < kLeastElapsed || seen <= 0 || done > total || seen < total / kLeastShare) {
    return std::nullopt;
  }
  const std::chrono::duration<double> seconds = elapsed;
  const double left =
      seconds.count() * static_cast<double>(total - done) / static_cast<double>(seen);
  return std::chrono::seconds(static_cast<std::int64_t>(left + 0.5));
}

}  // namespace vornalux
