// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "support/image_folder.h"

namespace vornalux::test {

// A block device over an image file, whose name may change meanwhile.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& image, const std::string& options = "") {
    scratch_.Run("losetup " + options + " -f --show '" + image + "' > node || true");
    const Bytes node = scratch_.Get("node");
    if (!node.empty()) node_.assign(node.begin(), node.end() - 1);
  }
  ~LoopDevice() {
    if (!node_.empty()) scratch_.Run("losetup -d " + node_);
  }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& Node() const { return node_; }  // empty where there are no such devices

 private:
  ScratchFolder scratch_;
  std::string node_;
};

}  // namespace vornalux::test
