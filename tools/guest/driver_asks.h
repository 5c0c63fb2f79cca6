// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/volumes.h"

namespace vornalux::guest {

// What a FAT driver is asked that the program's manners do not answer by themselves, and what
// Microsoft's answers: "question: error code". The drive is FAT12 or FAT16 and has in its root
// ASKED.BIN, two clusters or more in one piece, ASKED.NIL, empty, and the folder ASKED.DIR.
std::vector<std::string> AskFatDriver(Volumes& volumes, Files& files, const std::string& drive);

inline const std::vector<std::string> kFatDriverAnswers = {
    "bitmap from 13 begins at 8",
    "file to the end of the volume: 87",
    "file over the end of the volume: 87",
    "file, no cluster: 87",
    "file onto itself: 87",
    "file onto its second cluster: 87",
    "file past its end: 0",
    "file, pointers at its end: 38",
    "file beyond its clusters: 0",
    "file is whole in the gap",
    "empty, pointers: 38",
    "empty: 0",
    "folder: 87",
    "root folder: 87",
    "root folder, pointers: 0 to 8 at 4294967288",
};

}  // namespace vornalux::guest
