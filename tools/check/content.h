// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "check/report.h"

namespace vornalux {

// What a volume must hold. As a text file: header lines "# ...", then one line per stream
// "sha256 <tab> size <tab> path" with the path as "/folder/file" or "/folder/file:stream"; a folder
// has the line "- <tab> 0 <tab> /folder/". Backslash, tab and line ends in names are written \\,
// \t, \n, \r.
struct Manifest {
  struct Entry {
    std::string sha256;  // lower-case hex; "-" for a folder
    std::uint64_t size = 0;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  std::vector<std::string> header;       // without "# "
  std::map<std::string, Entry> entries;  // by path with its suffix, not escaped

  void Write(std::ostream& out) const;
  // Throws std::runtime_error naming the line that cannot be read.
  static Manifest Read(std::istream& in);

  // As above; throw std::runtime_error when the file cannot be opened, read or written.
  void Save(const std::string& path) const;
  static Manifest Load(const std::string& path);
};

// The manifest of checked items, which must have been hashed.
Manifest ManifestOf(const std::vector<CheckedItem>& items);

// One line per difference (missing, unexpected, other size, other content); empty when equal.
std::vector<std::string> CompareContent(const std::vector<CheckedItem>& items,
                                        const Manifest& manifest);
std::vector<std::string> CompareContent(const Manifest& actual, const Manifest& expected);

// SHA-256 in pieces.
class ContentHash {
 public:
  ContentHash();
  ~ContentHash();
  ContentHash(const ContentHash&) = delete;
  ContentHash& operator=(const ContentHash&) = delete;

  void Add(std::span<const std::uint8_t> bytes);
  void AddZeros(std::uint64_t count);
  // Lower-case hex; afterwards the hash starts anew.
  std::string Finish();

 private:
  void* context_;
};

}  // namespace vornalux
