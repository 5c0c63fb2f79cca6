// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/live_frame.h"

#include <algorithm>
#include <sstream>

#include "text/ascii_case.h"
#include "text/quantity_text.h"

namespace vornalux {
namespace {

constexpr int kMargin = 1;
constexpr int kMostBarColumns = 40;
constexpr int kMostBoxColumns = 60;
constexpr int kLeastMapRows = 3;
constexpr int kOtherRows = 11;        // of a main frame with its blanks, most often
constexpr int kWideDetails = 76;      // columns that its categories take, most often
constexpr int kDetailsFrameRows = 5;  // of a wide details frame that are no list

// Lines with how much they matter: when there is no room the least important ones go.
class FrameBuilder {
 public:
  FrameBuilder(ScreenSize size, Look look) : size_(size), look_(look) {}

  StyledLine Line() const {
    // The last column stays free: some terminals break the line after it.
    StyledLine line(look_, size_.columns - 1);
    line.AddBlanks(kMargin);
    return line;
  }
  void Add(StyledLine line, int importance) { lines_.push_back({line.Finish(), importance}); }
  void AddBlank() { lines_.push_back({"", 0}); }
  void Insert(std::size_t at, StyledLine line, int importance) {
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(at), {line.Finish(), importance});
  }
  std::size_t Count() const { return lines_.size(); }
  // Of a line, its margin included.
  int Columns() const { return size_.columns - 1; }

  // The map in all the rows that the other lines leave.
  MapGrid Grid() const {
    const int left = size_.rows - static_cast<int>(lines_.size());
    return {std::max(size_.columns - 1 - 2 * kMargin, 1), std::max(left, kLeastMapRows)};
  }

  ScreenLines Finish() {
    const auto rows = static_cast<std::size_t>(std::max(size_.rows, 1));
    while (lines_.size() > rows) {
      const auto less = [](const Row& a, const Row& b) { return a.importance < b.importance; };
      // Of equals the last.
      const auto last = std::min_element(lines_.rbegin(), lines_.rend(), less);
      lines_.erase(std::next(last).base());
    }
    ScreenLines frame;
    for (Row& row : lines_) frame.push_back(std::move(row.text));
    return frame;
  }

 private:
  struct Row {
    std::string text;
    int importance;
  };
  ScreenSize size_;
  Look look_;
  std::vector<Row> lines_;
};

void AddBar(StyledLine& line, const ProgressState& progress, int columns, Look look) {
  const std::int64_t done = std::clamp<std::int64_t>(progress.done, 0, progress.total);
  const auto full =
      static_cast<int>(columns * static_cast<double>(done) /
                       static_cast<double>(std::max<std::int64_t>(progress.total, 1)));
  const bool blocks = look.charset == Charset::Utf8;
  for (int i = 0; i < columns; ++i) {
    const bool filled = i < full;
    const char* symbol = blocks ? (filled ? "\xE2\x96\x88" : "\xE2\x96\x91") : (filled ? "#" : "-");
    line.AddCell(symbol, std::nullopt, std::nullopt);
  }
}

void AddProgress(FrameBuilder& frame, const LiveState& state, Look look) {
  StyledLine line = frame.Line();
  std::string text;
  if (const std::optional<int> percent = Percent(state.progress)) {
    const std::string number = std::to_string(*percent);
    text = std::string(3 - std::min<std::size_t>(number.size(), 3), ' ') + number + "%";
  }
  if (state.bytes_moved > 0) {
    text += (text.empty() ? "" : "   ") + ByteText(state.bytes_moved) + " moved";
  }
  if (state.max_rate > 0) {
    text += (text.empty() ? "at most " : ", at most ") + ByteText(state.max_rate) + "/s";
  }
  if (state.progress.left) text += "   " + ClockText(*state.progress.left) + " left";
  if (state.progress.total > 0) {
    const int bar = line.Room() - static_cast<int>(text.size()) - 2;
    if (bar >= 5) AddBar(line, state.progress, std::min(bar, kMostBarColumns), look);
    line.AddBlanks(1);
  }
  line.Add(text);
  frame.Add(std::move(line), 8);
}

// As many words a line as fit.
std::vector<std::string> Wrapped(const std::string& text, int columns) {
  std::vector<std::string> lines(1);
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.back().empty()) {
      if (std::ssize(lines.back()) + 1 + std::ssize(word) <= columns) {
        lines.back() += ' ';
      } else {
        lines.emplace_back();
      }
    }
    lines.back() += word;
  }
  return lines;
}

// Rows of text between the lines of a box.
class BoxBuilder {
 public:
  BoxBuilder(FrameBuilder& frame, Look look)
      : frame_(frame),
        look_(look),
        columns_(std::clamp(frame.Line().Room() - kMargin - 4, 1, kMostBoxColumns)) {}

  int Columns() const { return columns_; }

  void AddEdge(bool top) {
    StyledLine line = frame_.Line();
    line.AddCell(Symbol(top ? "\xE2\x94\x8C" : "\xE2\x94\x94", "+"), {}, {});
    for (int i = 0; i < columns_ + 2; ++i) line.AddCell(Symbol("\xE2\x94\x80", "-"), {}, {});
    line.AddCell(Symbol(top ? "\xE2\x94\x90" : "\xE2\x94\x98", "+"), {}, {});
    frame_.Add(std::move(line), 1);
  }
  void AddRow(std::string_view strong, const std::string& text, int importance) {
    StyledLine line = frame_.Line();
    line.AddCell(Symbol("\xE2\x94\x82", "|"), {}, {}).AddBlanks(1);
    const int end = line.Room() - columns_;
    line.AddStrong(CutText(strong, columns_, look_.charset));
    line.Add(CutText(text, line.Room() - end, look_.charset)).AddBlanks(line.Room() - end + 1);
    line.AddCell(Symbol("\xE2\x94\x82", "|"), {}, {});
    frame_.Add(std::move(line), importance);
  }

 private:
  const char* Symbol(const char* drawn, const char* plain) const {
    return look_.charset == Charset::Utf8 ? drawn : plain;
  }

  FrameBuilder& frame_;
  Look look_;
  int columns_;
};

std::string WithoutMark(std::string caption) {
  std::erase(caption, '&');
  return caption;
}

// What can be chosen is seen on the lowest of screens.
void AddWarning(FrameBuilder& frame, const WarningBox& warning, Look look) {
  BoxBuilder box(frame, look);
  box.AddEdge(true);
  box.AddRow(WithDegrees(warning.temperature, look.charset), "   " + warning.title, 8);
  box.AddRow("", "", 0);
  for (const std::string& line : Wrapped(warning.text, box.Columns())) box.AddRow("", line, 4);
  box.AddRow("", "", 0);
  for (const std::string& choice : warning.choices) {
    const char key = AccessKey(choice);
    box.AddRow({&key, 1}, "  " + WithoutMark(choice), 9);
  }
  box.AddEdge(false);
}

void AddLegend(FrameBuilder& frame, const LiveState& state, Look look) {
  std::vector<StyledLine> lines = LegendLines(state.legend, kMargin, frame.Columns(), look);
  for (StyledLine& line : lines) frame.Add(std::move(line), 3);
}

// Behind the line that is there already.
void InsertMap(FrameBuilder& frame, std::size_t at, const MapColumns& map, Look look) {
  const MapGrid grid = frame.Grid();
  for (int row = 0; row < grid.rows; ++row) {
    StyledLine line = frame.Line();
    AddMapRow(line, map, grid, row, look);
    const int importance = row == 0 ? 6 : row < kLeastMapRows ? 4 : 1;
    frame.Insert(at++, std::move(line), importance);
  }
}

// On as many lines as it takes; what can be answered is always seen.
void AddQuestion(FrameBuilder& frame, const std::string& subject, const std::string& question,
                 Look look) {
  constexpr int kAnswers = 11;
  const int question_columns = DisplayWidth(PrintableText(question, look.charset), look.charset);
  StyledLine line = frame.Line();
  std::string about = subject.empty() ? "" : PrintableText(subject, look.charset) + ": ";
  const int about_columns = DisplayWidth(about, look.charset);
  if (about_columns + question_columns + kAnswers + 4 > line.Room() && !subject.empty()) {
    frame.Add(std::move(line.AddReverse(
                  " " + ShortenedText(subject, line.Room() - 3, look.charset) + ": ")),
              8);
    line = frame.Line();
    about.clear();
  }
  line.AddReverse(" " + about + question + " ").AddBlanks(2);
  if (line.Room() < kAnswers) {
    frame.Add(std::move(line), 8);
    line = frame.Line();
  }
  line.AddStrong("y").Add(" Yes  ").AddStrong("n").Add(" No");
  frame.Add(std::move(line), 9);
}

void AddKeys(FrameBuilder& frame, std::initializer_list<std::pair<const char*, const char*>> keys) {
  StyledLine line = frame.Line();
  int columns = 0;
  for (const auto& [key, meaning] : keys) {
    columns +=
        static_cast<int>(std::string_view(key).size() + std::string_view(meaning).size()) + 4;
  }
  const int between = columns > line.Room() ? 1 : 3;
  for (const auto& [key, meaning] : keys) {
    line.AddStrong(key).AddBlanks(1).AddDim(meaning).AddBlanks(between);
  }
  frame.Add(std::move(line), 2);
}

// What is done, and to what; on a line of its own where both have no room.
void AddTitle(FrameBuilder& frame, const LiveState& state, Look look) {
  StyledLine title = frame.Line();
  title.AddStrong("Vornalux").AddBlanks(2).Add(state.caption);
  std::string image = PrintableText(state.image, look.charset);
  if (!state.place.empty()) image += "  (" + state.place + ")";
  if (image.empty() || DisplayWidth(image, look.charset) + 2 <= title.Room()) {
    if (!image.empty()) title.AddBlanks(2).AddDim(image);
    return frame.Add(std::move(title), 7);
  }
  frame.Add(std::move(title), 7);
  StyledLine line = frame.Line();
  line.AddDim(ShortenedText(image, line.Room(), look.charset));
  frame.Add(std::move(line), 7);
}

}  // namespace

char AccessKey(std::string_view caption) {
  const std::size_t mark = caption.find('&');
  if (mark == std::string_view::npos || mark + 1 == caption.size()) return 0;
  return LowerCase(caption[mark + 1]);
}

MapGrid GridOf(ScreenSize size) {
  return {std::max(size.columns - 1 - 2 * kMargin, 1),
          std::max(size.rows - kOtherRows, kLeastMapRows)};
}

ScreenLines ComposeMain(const LiveState& state, ScreenSize size, Look look) {
  FrameBuilder frame(size, look);
  AddTitle(frame, state, look);
  frame.AddBlank();
  const std::size_t map = frame.Count();
  if (state.warning) {
    AddWarning(frame, *state.warning, look);
  } else {
    frame.AddBlank();
    AddLegend(frame, state, look);
  }
  frame.AddBlank();
  StyledLine item = frame.Line();
  item.AddShortened(state.redrawing && state.item.empty() ? "Redrawing the map" : state.item);
  frame.Add(std::move(item), 5);
  AddProgress(frame, state, look);
  StyledLine temperature = frame.Line();
  temperature.Add(WithDegrees(state.temperature, look.charset));
  frame.Add(std::move(temperature), 1);
  frame.AddBlank();
  if (!state.message.empty()) {
    StyledLine message = frame.Line();
    message.AddStrong(state.message);
    frame.Add(std::move(message), 9);
  }
  if (!state.question.empty()) {
    AddQuestion(frame, state.image, state.question, look);
  } else if (!state.warning) {
    AddKeys(frame, {{"s", "Stop"}, {"m", "Redraw map"}, {"d", "Details"}, {"q", "Exit"}});
  }
  if (!state.warning) InsertMap(frame, map, state.map, look);
  return frame.Finish();
}

std::size_t DetailsRows(ScreenSize size) {
  const int others = kDetailsFrameRows + (size.columns < kWideDetails ? 1 : 0);
  return static_cast<std::size_t>(std::max(size.rows - others, 1));
}

ScreenLines ComposeDetails(const FrmDetails& details, std::size_t first,
                           const std::string& question, ScreenSize size, Look look) {
  FrameBuilder frame(size, look);
  const std::vector<std::string>& rows = details.ListView1.rows();
  const std::size_t end = std::min(rows.size(), first + DetailsRows(size));

  StyledLine title = frame.Line();
  title.AddStrong(details.caption.get()).AddBlanks(3);
  title.Add(rows.empty()
                ? "nothing listed"
                : Grouped(static_cast<std::int64_t>(first) + 1) + " - " +
                      Grouped(static_cast<std::int64_t>(end)) + " of " + Grouped(std::ssize(rows)));
  frame.Add(std::move(title), 7);

  // On two lines where one has no room for them.
  const bool narrow = size.columns < kWideDetails;
  StyledLine categories = frame.Line();
  categories.Add(details.Label5.caption.get()).AddBlanks(2);
  const Button* const buttons[] = {&details.Command1, &details.Command2, &details.Command3};
  for (std::size_t i = 0; i < details.Label4.size(); ++i) {
    const std::string text = std::to_string(i + 1) + " " + details.Label4[i].caption.get() + " " +
                             details.counts[i].caption.get();
    if (look.depth != ColourDepth::None && !narrow) {
      AddLegendBox(categories, details.Shape2[i].fill_colour, look);
      categories.AddBlanks(1);
    }
    if (buttons[i]->enabled) {
      categories.Add(text);
    } else {
      categories.AddDim(text);
    }
    categories.AddBlanks(2);
    if (!narrow || i > 0) continue;
    frame.Add(std::move(categories), 4);
    categories = frame.Line();
  }
  frame.Add(std::move(categories), 4);

  StyledLine heading = frame.Line();
  heading.AddReverse(details.ListView1.column_heading);
  frame.Add(std::move(heading), 3);
  for (std::size_t i = first; i < end; ++i) {
    StyledLine row = frame.Line();
    row.AddShortened(rows[i]);
    frame.Add(std::move(row), 5);
  }
  frame.AddBlank();
  if (!question.empty()) {
    AddQuestion(frame, "", question, look);
  } else {
    AddKeys(frame, {{"1 2 3", "List"}, {"up, down", "Scroll"}, {"d", "Close"}});
  }
  return frame.Finish();
}

}  // namespace vornalux
