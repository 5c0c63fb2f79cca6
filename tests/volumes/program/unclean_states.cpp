// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/program/unclean_states.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "host/image/device/little_endian.h"

namespace vornalux::test {
namespace {

// The two pages with which it begins.
std::vector<std::uint8_t> RestartPages(std::uint16_t major, bool clean) {
  constexpr std::size_t kPage = 4096;
  constexpr std::uint64_t kFileSize = 2 << 20;
  std::vector<std::uint8_t> pages(2 * kPage);
  const std::span<std::uint8_t> header(pages);
  std::copy_n("RSTR", 4, pages.begin());
  StoreLittle<std::uint16_t>(header, 4, 30);  // update sequence array: offset, count
  StoreLittle<std::uint16_t>(header, 6, 9);
  StoreLittle<std::uint32_t>(header, 16, kPage);
  StoreLittle<std::uint32_t>(header, 20, kPage);
  StoreLittle<std::uint16_t>(header, 24, 48);  // restart area
  StoreLittle<std::uint16_t>(header, 26, major == 1 ? 1 : 0);
  StoreLittle<std::uint16_t>(header, 28, major);
  StoreLittle<std::uint16_t>(header, 30, 1);
  const std::span<std::uint8_t> area = header.subspan(48);
  StoreLittle<std::uint16_t>(area, 8, 1);  // clients: one, not free, in use
  StoreLittle<std::uint16_t>(area, 10, 0xFFFF);
  StoreLittle<std::uint16_t>(area, 12, 0);
  StoreLittle<std::uint16_t>(area, 14, clean ? 2 : 0);
  StoreLittle<std::uint32_t>(area, 16, 67 - std::bit_width(kFileSize));
  StoreLittle<std::uint16_t>(area, 20, 48 + 160);
  StoreLittle<std::uint16_t>(area, 22, 48);
  StoreLittle<std::uint64_t>(area, 24, kFileSize);
  StoreLittle<std::uint32_t>(area, 48 + 16, 0xFFFFFFFF);
  for (std::size_t end = 512; end <= kPage; end += 512) {
    StoreLittle<std::uint16_t>(header, end - 2, 1);
  }
  std::copy_n(pages.begin(), kPage, pages.begin() + kPage);
  return pages;
}

void MarkHibernated(NtfsEditor& editor) {
  for (const CheckedItem& item : editor.report.items) {
    if (item.path != "/hiberfil.sys" || item.extents.empty()) continue;
    std::copy_n("hibr", 4, editor.At(item.extents[0].lcn).begin());
    return;
  }
  throw std::logic_error("no hiberfil.sys with clusters of its own");
}

void MarkDirty(NtfsEditor& editor) {
  editor.Attribute(3, 0x70, [](ByteSpan a) { a[Get(a, 20, 2) + 10] |= 1; });
}

}  // namespace

void WriteLog(NtfsEditor& editor, std::uint16_t major, bool finished) {
  std::ranges::copy(RestartPages(major, finished),
                    editor.At(editor.Meta("/$LogFile").extents[0].lcn).begin());
}

std::vector<UncleanState> UncleanStates() {
  return {{"dirty", "is marked dirty", MarkDirty},
          {"hibernated", "is held by a hibernated Windows", MarkHibernated},
          {"unfinished log", "has unfinished changes in its log file",
           [](NtfsEditor& editor) { WriteLog(editor, 1, false); }},
          {"fast startup", "is held by a hibernated Windows",
           [](NtfsEditor& editor) { WriteLog(editor, 2, true); }},
          {"dirty and hibernated", "is held by a hibernated Windows", [](NtfsEditor& editor) {
             MarkDirty(editor);
             MarkHibernated(editor);
           }}};
}

}  // namespace vornalux::test
