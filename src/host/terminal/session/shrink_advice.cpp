// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/shrink_advice.h"

#include "text/shell_text.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kSector = 512;

// whole: the device or file holds the volume alone, without being a partition of something.
std::string Resizer(const SmallestSize& smallest, bool ntfs, bool whole) {
  const std::string size = std::to_string(smallest.bytes) + " ";
  if (ntfs)
    return std::string("ntfsresize ") + (smallest.bad_clusters ? "--bad-sectors " : "") +
           "--size " + size;
  return std::string("fatresize ") + (whole ? "--partition 1 " : "") + "--size " + size;
}

}  // namespace

ShrinkAdvice AdviseShrink(const std::string& image, const VolumePlace& place,
                          const SmallestSize& smallest, bool ntfs) {
  // No program takes it for an option.
  const std::string path = ShellQuoted(image.starts_with('-') ? "./" + image : image);
  const std::uint64_t end = (smallest.bytes + kSector - 1) / kSector * kSector;
  ShrinkAdvice advice = {
      .bytes = smallest.bytes, .left_to_move = smallest.left_to_move, .commands = {}, .then = {}};
  if (place.offset == 0) {
    advice.commands.push_back(Resizer(smallest, ntfs, !place.partition) + path);
    if (!place.device && !place.last) {
      advice.then = "What lies behind the volume stays where it is.";
    } else if (!place.device) {
      // Never of a volume that would not become smaller.
      advice.commands.back() += " && truncate --size=" + std::to_string(end) + " " + path;
    } else if (place.partition) {
      advice.then = "Then the partition may be made " + std::to_string(end / kSector) +
                    " sectors of 512 bytes long.";
    }
    return advice;
  }
  advice.commands = {"volume=$(losetup --find --show --offset " + std::to_string(place.offset) +
                         " --sizelimit " + std::to_string(place.length) + " " + path + ")",
                     Resizer(smallest, ntfs, true) + "\"$volume\"", "losetup --detach \"$volume\""};
  advice.then = "Then its partition may end before sector " +
                std::to_string((place.offset + end) / kSector) + " (of 512 bytes).";
  return advice;
}

}  // namespace vornalux
