// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>
#include <system_error>

#include "host/image/file_device.h"
#include "host/image/image_volume.h"

namespace vornalux {

// A journal in a file of its own. Its folder must exist.
class FileJournalHome final : public JournalHome {
 public:
  explicit FileJournalHome(std::string path) : path_(std::move(path)) {}

  const std::string& Path() const { return path_; }

  // True also for what cannot be looked at: opening it then says why.
  bool Exists() const override;
  std::error_code Open(std::unique_ptr<BlockDevice>& store) override;
  // An existing journal, to be looked at.
  std::error_code OpenForReading(std::unique_ptr<BlockDevice>& store) const;
  std::error_code Remove() override;

 private:
  std::error_code OpenFile(int flags, std::unique_ptr<FileDevice>& device) const;
  std::error_code FlushFolder() const;

  std::string path_;
};

}  // namespace vornalux
