// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/map_text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "text/quantity_text.h"

namespace vornalux {
namespace {

constexpr int kMargin = 1;
constexpr int kOtherRows = 8;  // title, legend, blanks, and the shell's next line
constexpr MapGrid kPlainGrid = {78, 20};

bool IsTerminal() { return ::isatty(STDOUT_FILENO) != 0; }

}  // namespace

MapGrid OutputGrid() {
  winsize size = {};
  if (!IsTerminal() || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 ||
      size.ws_row == 0) {
    return kPlainGrid;
  }
  return {std::max(size.ws_col - 1 - 2 * kMargin, 1), std::max(size.ws_row - kOtherRows, 3)};
}

Look OutputLook(Charset charset) {
  const char* no_colour = std::getenv("NO_COLOR");
  const bool plain = !IsTerminal() || (no_colour != nullptr && *no_colour != '\0');
  const auto depth = plain ? std::nullopt : DepthOf(std::getenv("TERM"), std::getenv("COLORTERM"));
  return {charset, depth.value_or(ColourDepth::None)};
}

std::string MapText(const VolumeDescription& volume, const AnalysisFigures& figures,
                    const MapColumns& map, const Legend& legend, MapGrid grid, Look look) {
  const int columns = grid.columns + 2 * kMargin;
  const auto line = [&] {
    StyledLine begun(look, columns);
    begun.AddBlanks(kMargin);
    return begun;
  };
  const std::int64_t bytes = figures.total_clusters * volume.cluster_bytes;
  const std::string facts = volume.file_system + ", " + ByteText(bytes) + ", each place " +
                            ByteText(bytes / std::max(grid.Places(), 1));
  std::string text;
  const auto add = [&text](StyledLine&& made) { text += made.Finish() + "\n"; };
  StyledLine title = line();
  const int name = title.Room() - static_cast<int>(facts.size()) - 2;
  const std::string image = PrintableText(volume.image, look.charset);
  if (name >= std::min(DisplayWidth(image, look.charset), 16)) {
    title.Add(ShortenedText(image, name, look.charset)).AddBlanks(2).Add(facts);
    add(std::move(title));
  } else {
    add(std::move(title.AddShortened(image)));
    add(std::move(line().Add(facts)));
  }
  text += "\n";
  for (int row = 0; row < grid.rows; ++row) {
    StyledLine made = line();
    AddMapRow(made, map, grid, row, look);
    add(std::move(made));
  }
  text += "\n";
  for (StyledLine& made : LegendLines(legend, kMargin, columns, look)) add(std::move(made));
  return text;
}

}  // namespace vornalux
