// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/same_volume.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>

#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"

namespace vornalux {
namespace {

struct Place {
  std::string self;
  std::vector<std::string> below;  // what it lies on
};

std::string FileNumber(const struct stat& status) {
  return "file " + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// Two loop devices may show different parts of one file.
void AddLoop(const std::filesystem::path& folder, Place& place) {
  struct stat file {};
  const std::string backing = FirstLine(folder / "loop/backing_file");
  if (backing.empty() || ::stat(backing.c_str(), &file) != 0) return;
  const std::string number = FileNumber(file);
  place.below.push_back(number);
  place.below.push_back(number + " from " + FirstLine(folder / "loop/offset"));
}

Place PlaceOf(const std::string& image, const std::string& sysfs) {
  struct stat status {};
  // Whatever it is, opening it will say so.
  if (::stat(image.c_str(), &status) != 0) return {"path " + image, {}};
  if (!S_ISBLK(status.st_mode)) return {FileNumber(status), {}};
  const std::string number =
      std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
  Place place = {"device " + number, {}};
  AddLoop(BlockFolder(sysfs, number), place);
  if (const std::string disk = WholeDiskOf(sysfs, number); !disk.empty()) {
    place.below.push_back("device " + disk);
    Place whole = {"", {}};
    AddLoop(BlockFolder(sysfs, disk), whole);
    if (!whole.below.empty()) place.below.push_back(whole.below.front());
  }
  return place;
}

bool LiesOn(const Place& place, const std::string& other) {
  return std::ranges::find(place.below, other) != place.below.end();
}

// "file 1:2 from 0" stands for a part, the plain number for all of the file.
bool SamePart(const Place& a, const Place& b) {
  return std::ranges::any_of(a.below, [&b](const std::string& each) {
    return each.find(" from ") != std::string::npos && LiesOn(b, each);
  });
}

}  // namespace

std::optional<std::pair<std::string, std::string>> FindSameVolume(
    const std::vector<std::string>& images, const std::string& sysfs) {
  std::vector<Place> places;
  for (const std::string& image : images) {
    const Place& place = places.emplace_back(PlaceOf(image, sysfs));
    for (std::size_t i = 0; i + 1 < places.size(); ++i) {
      const Place& other = places[i];
      if (other.self == place.self || LiesOn(place, other.self) || LiesOn(other, place.self) ||
          SamePart(place, other)) {
        return std::pair(images[i], image);
      }
    }
  }
  return std::nullopt;
}

}  // namespace vornalux
