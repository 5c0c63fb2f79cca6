// SPDX-License-Identifier: GPL-2.0-or-later
// What flows that are tests have in common.
#pragma once

#include <gtest/gtest.h>

#include "play/flow.h"
#include "play/session.h"

namespace vornalux::play {

const Screen& StartToTheLauncher(Session& session);
// Unfolds the launcher's options.
void OpenOptions(const Screen& screen);
// Past the launcher, to the idle main window of the drive that is number index in the list.
const Screen& SelectDrive(Session& session, int index);

// Leaves drive D's image for the checkers that run afterwards.
void KeepImageOfD(Session& session);

}  // namespace vornalux::play
