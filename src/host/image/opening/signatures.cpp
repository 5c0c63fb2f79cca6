// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/signatures.h"

#include <charconv>
#include <string_view>

#include "host/image/drive/blkid_probe.h"

namespace vornalux {
namespace {

constexpr int kMostLooks = 512;  // more than there are kinds to look for

std::string Value(blkid_probe probe, const char* name) {
  const char* data = nullptr;
  if (blkid_probe_lookup_value(probe, name, &data, nullptr) != 0 || data == nullptr) return {};
  return data;
}

std::uint64_t Number(std::string_view text) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::vector<Signature> FindSignatures(int descriptor, std::uint64_t offset, std::uint64_t length) {
  std::vector<Signature> found;
  // 0 would stand for all that there is.
  const BlkidProbe probe = length == 0 ? nullptr : ProbeOver(descriptor, offset, length);
  if (!probe) return found;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_USAGE |
                                                     BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID |
                                                     BLKID_SUBLKS_VERSION | BLKID_SUBLKS_MAGIC);
  for (int look = 0; look < kMostLooks; ++look) {
    const int result = blkid_do_probe(probe.get());
    if (result == 1) break;
    // What cannot be read there may be somebody else's mark; the next one is looked for.
    if (result != 0) continue;
    std::size_t magic_length = 0;
    const char* magic = nullptr;
    blkid_probe_lookup_value(probe.get(), "SBMAGIC", &magic, &magic_length);
    found.push_back({.type = Value(probe.get(), "TYPE"),
                     .usage = Value(probe.get(), "USAGE"),
                     .version = Value(probe.get(), "VERSION"),
                     .label = Value(probe.get(), "LABEL"),
                     .uuid = Value(probe.get(), "UUID"),
                     .end = Number(Value(probe.get(), "SBMAGIC_OFFSET")) + magic_length});
  }
  return found;
}

}  // namespace vornalux
