// SPDX-License-Identifier: GPL-2.0-or-later
// What flows that are tests have in common.
#pragma once

#include <gtest/gtest.h>

#include "play/flow.h"
#include "play/session.h"

namespace vornalux::play {

// Leaves drive D's image for the checkers that run afterwards.
void KeepImageOfD(Session& session);

}  // namespace vornalux::play
