// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/types.h"

namespace vornalux {

// Asks the file system behind an open volume or file. answered is how many bytes of out were
// filled: never more than it has, 0 after a failure other than kMoreData.
ErrorCode FileSystemControl(Handle handle, std::uint32_t code, std::span<const std::uint8_t> in,
                            std::span<std::uint8_t> out, std::size_t& answered);

// The names of the file's streams as the system lists them; results as above.
ErrorCode QueryStreamInformation(Handle file, std::span<std::uint8_t> out, std::size_t& answered);

}  // namespace vornalux
