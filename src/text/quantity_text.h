// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vornalux {

// 1234567 as "1,234,567".
std::string Grouped(std::int64_t number);

// "1 move", "1,234 moves".
std::string Counted(std::int64_t count, const char* one);

// "512 bytes", "4 KiB", "1.5 GiB".
std::string ByteText(std::int64_t bytes);

// "12.5%"; empty when there is no whole.
std::string PercentText(std::int64_t part, std::int64_t whole);

// "0:07", "12:30", "2:05:00".
std::string ClockText(std::chrono::seconds duration);

}  // namespace vornalux
