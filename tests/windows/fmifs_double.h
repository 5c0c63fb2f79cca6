// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux::test {

// What the double of fmifs.dll was asked for and was told by its callback. The name of the file
// system tells it what to do: "NTFS" a check that goes well, "NASTY" one whose messages cannot be
// read.
struct CheckLog {
  wchar_t root[16];
  wchar_t file_system[16];
  unsigned char correct_errors, verbose, only_if_dirty, scan_drive;
  int calls;        // of the callback
  int last_answer;  // what it returned
};

}  // namespace vornalux::test
