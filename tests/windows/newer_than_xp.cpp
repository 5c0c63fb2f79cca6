// SPDX-License-Identifier: GPL-2.0-or-later
// A program that XP would not start.
#define _WIN32_WINNT 0x0600
#include <windows.h>

int main() { return GetTickCount64() == 0 ? 1 : 0; }
