// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/report.h"

#include <algorithm>
#include <tuple>

namespace vornalux {

std::size_t CheckedItem::Fragments() const {
  return static_cast<std::size_t>(std::count_if(extents.begin(), extents.end(),
                                                [](const CheckedExtent& e) { return e.lcn >= 0; }));
}

const CheckedItem* CheckReport::Find(const std::string& path, const std::string& stream) const {
  const auto found = std::lower_bound(items.begin(), items.end(), std::tie(path, stream),
                                      [](const CheckedItem& item, const auto& wanted) {
                                        return std::tie(item.path, item.stream) < wanted;
                                      });
  if (found == items.end() || found->path != path || found->stream != stream) return nullptr;
  return &*found;
}

std::string CheckReport::ProblemText() const {
  std::string text;
  for (const std::string& problem : problems) text += problem + "\n";
  return text;
}

}  // namespace vornalux
