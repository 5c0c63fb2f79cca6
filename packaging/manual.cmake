# SPDX-License-Identifier: GPL-2.0-or-later
# The manual page and the shells' completions, made by the program.
# cmake -DPROGRAM=FILE -DTEMPLATE=FILE -DOUTPUT=FOLDER -DVERSION=... -DDATE=... -DHOME_PAGE=...
#   -P manual.cmake
function(describe what variable)
  execute_process(COMMAND ${PROGRAM} --describe ${what} OUTPUT_VARIABLE text RESULT_VARIABLE code)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${PROGRAM} --describe ${what}: ${code}")
  endif()
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

foreach(part SYNOPSIS NOTES COMMANDS OPTIONS EXIT_CODES)
  string(TOLOWER ${part} what)
  string(REPLACE "_" "-" what ${what})
  describe(${what} ${part})
endforeach()
set(HOME "")
if(HOME_PAGE)
  string(REPLACE "-" "\\-" HOME ".SH HOME PAGE\n${HOME_PAGE}")
endif()
configure_file(${TEMPLATE} ${OUTPUT}/vornalux.8 @ONLY)
foreach(shell bash zsh fish)
  describe(${shell} text)
  file(WRITE ${OUTPUT}/vornalux.${shell} "${text}")
endforeach()
