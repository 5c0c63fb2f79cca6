// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "host/image/journal/journal_home.h"
#include "host/image/opening/file_device.h"

namespace vornalux {

// A journal in a file of its own, held locked from Make() or Take() on, so that no other run
// obeys, takes or removes it. One that was made and never written to goes away with its home.
//
// Results that are text are the reason of a failure, worded as the end of a sentence about the
// journal; empty is success.
class FileJournalHome final : public JournalHome {
 public:
  explicit FileJournalHome(std::string path) : path_(std::move(path)) {}
  ~FileJournalHome() override;

  const std::string& Path() const { return path_; }

  // Also true when it cannot be looked at; Take() then says why.
  bool Exists() const;

  // A new journal, with room for so many bytes.
  std::string Make(std::uint64_t room);

  // The one that is there. It must belong to the user who runs this, or to root, and be writable
  // by nobody else: whoever writes it decides what goes into the volume. for_writing: the run will
  // finish it; else looking will do.
  std::string Take(bool for_writing);
  // Take() failed because another run holds it.
  bool Busy() const { return busy_; }

  std::error_code Open(std::shared_ptr<BlockDevice>& store) override;
  std::error_code Remove() override;

 private:
  std::string Adopt(int descriptor, bool for_writing);
  std::string Reserve(std::uint64_t room) const;
  bool IsStillThere() const;
  std::error_code FlushFolder() const;

  std::string path_;
  std::shared_ptr<FileDevice> file_;
  bool made_ = false;
  bool busy_ = false;
};

// Who, besides root and the user who runs this, may write to it or put something in its place, as
// the end of a sentence. Empty when nobody may.
std::string ForeignWriter(const struct stat& status);

}  // namespace vornalux
