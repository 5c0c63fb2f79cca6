// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/intact.h"
#include "support/seed.h"

namespace vornalux::test {

// A volume after a recipe, as "disk.img" in a folder of its own.
class MadeVolume : public ImageFolder {
 protected:
  void Make(const std::string& recipe, std::uint64_t seed = TestSeed()) {
    recipe_ = recipe + " seed=" + std::to_string(seed);
    manifest_ = MakeVolume(recipe_, image_);
    before_ = Get("disk.img");
  }
  void ExpectWhole() const {
    SCOPED_TRACE(recipe_);
    ExpectIntact(image_, manifest_);
  }
  bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }

  const std::string image_ = Path("disk.img");
  std::string recipe_;
  Manifest manifest_;
  Bytes before_;
};

}  // namespace vornalux::test
