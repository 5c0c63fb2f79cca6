# SPDX-License-Identifier: GPL-2.0-or-later
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(TOOL i686-w64-mingw32)
set(CMAKE_C_COMPILER ${TOOL}-gcc)
set(CMAKE_CXX_COMPILER ${TOOL}-g++)
set(CMAKE_RC_COMPILER ${TOOL}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${TOOL})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Runs on XP and needs no run-time beside itself. Registers of floating point are cut to 53 bits, as
# threads other than the first have them anyway (CRT_fp8.o), so that results are those of 64-bit
# programs. Addresses above 2 GB are of use where there are that many.
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "-static -l:CRT_fp8.o -Wl,--large-address-aware,--major-os-version,5,--minor-os-version,1,--major-subsystem-version,5,--minor-subsystem-version,1")
