# SPDX-License-Identifier: GPL-2.0-or-later
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TOOL x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${TOOL}-gcc)
set(CMAKE_CXX_COMPILER ${TOOL}-g++)
set(CMAKE_RC_COMPILER ${TOOL}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${TOOL})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Runs on XP and needs no run-time beside itself.
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "-static -Wl,--major-os-version,5,--minor-os-version,2,--major-subsystem-version,5,--minor-subsystem-version,2")
