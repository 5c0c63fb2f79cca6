// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// What is said of a volume that another system has not finished with. finding goes on after the
// volume's name: "is marked dirty". From outside nobody can tell which of the possible causes it
// was, so each is named with its remedy.
inline std::string UncleanText(const std::string& volume, const std::string& finding, bool ntfs) {
  const std::string check =
      ntfs ? "chkdsk /f on Windows" : "fsck.fat -a IMAGE, or chkdsk /f on Windows";
  std::string text = volume + " " + finding +
                     ". Either it was not unmounted cleanly, or an error " +
                     "was found on it: check it (" + check + "). Or Windows hibernated, or was " +
                     "shut down with Fast Startup, and keeps part of it in memory: start that " +
                     "Windows and shut it down fully (shutdown /s /f /t 0).";
  text +=
      " Or a run of this program was interrupted on it under another name, beside which its "
      "journal still lies: go on under that name first.";
  if (!ntfs) return text;
  return text + " Or changes in its log ($LogFile) are unfinished: let Windows mount it once.";
}

}  // namespace vornalux
