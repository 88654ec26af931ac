# SPDX-License-Identifier: MIT
# The man pages are generated from --help.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "help2man is missing: no man pages")
endif()

# velk_man_page(PROGRAM SUMMARY)
function(velk_man_page program summary)
  if(NOT HELP2MAN OR CMAKE_CROSSCOMPILING OR VELK_SANITIZE)
    return()
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${program}.1)
  set(others ${velk_programs})
  list(REMOVE_ITEM others ${program})
  list(TRANSFORM others REPLACE "(.+)" ".BR \\1 (1)")
  list(JOIN others ",\n" others)
  file(CONFIGURE OUTPUT ${page}.sections CONTENT "[see also]\n${others}\n" @ONLY)
  add_custom_command(OUTPUT ${page} DEPENDS ${program} VERBATIM
    COMMAND ${HELP2MAN} --no-info --name ${summary} --include ${page}.sections --output ${page}
            $<TARGET_FILE:${program}>
    COMMAND sed -i "s/^\\.SS \"Exit status:\"/.SH \"EXIT STATUS\"/" ${page})
  add_custom_target(${program}-man ALL DEPENDS ${page})
  if(VELK_INSTALL)
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endfunction()
