// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/mounts.h"

#include <libmount/libmount.h>

#include <memory>

#include "host/image/drive/sysfs.h"

namespace vornalux {
namespace {

struct Release {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
  void operator()(libmnt_iter* at) const { mnt_free_iter(at); }
};

using ParseTable = int (*)(libmnt_table*, const char*);

std::vector<Mount> Read(ParseTable parse, const std::string& path) {
  const auto text = [](const char* value) { return std::string(value != nullptr ? value : ""); };
  std::vector<Mount> mounts;
  const std::unique_ptr<libmnt_table, Release> table(mnt_new_table());
  const std::unique_ptr<libmnt_iter, Release> at(mnt_new_iter(MNT_ITER_FORWARD));
  if (!table || !at || parse(table.get(), path.c_str()) != 0) return mounts;
  for (libmnt_fs* mount = nullptr; mnt_table_next_fs(table.get(), at.get(), &mount) == 0;) {
    mounts.push_back({.device = NumbersOf(mnt_fs_get_devno(mount)),
                      .source = text(mnt_fs_get_source(mount)),
                      .point = text(mnt_fs_get_target(mount)),
                      .type = text(mnt_fs_get_fstype(mount))});
  }
  return mounts;
}

}  // namespace

std::vector<Mount> ReadMounts(const std::string& path) { return Read(mnt_table_parse_file, path); }

std::vector<Mount> ReadSwaps(const std::string& path) { return Read(mnt_table_parse_swaps, path); }

}  // namespace vornalux
