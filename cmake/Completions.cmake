# SPDX-License-Identifier: MIT
# Completions for bash, zsh and fish, generated from --help.
find_program(VELK_AWK awk)

# velk_completions(PROGRAM)
function(velk_completions program)
  if(NOT VELK_AWK OR CMAKE_CROSSCOMPILING OR VELK_SANITIZE)
    return()
  endif()
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/completions)
  set(script ${PROJECT_SOURCE_DIR}/cmake/completions.awk)
  set(files ${folder}/${program} ${folder}/_${program} ${folder}/${program}.fish)
  add_custom_command(OUTPUT ${files} DEPENDS ${program} ${script}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    COMMAND $<TARGET_FILE:${program}> --help > ${folder}/${program}.help
    COMMAND ${VELK_AWK} -v program=${program} -v shell=bash -f ${script} ${folder}/${program}.help
            > ${folder}/${program}
    COMMAND ${VELK_AWK} -v program=${program} -v shell=zsh -f ${script} ${folder}/${program}.help
            > ${folder}/_${program}
    COMMAND ${VELK_AWK} -v program=${program} -v shell=fish -f ${script} ${folder}/${program}.help
            > ${folder}/${program}.fish)
  add_custom_target(${program}-completions ALL DEPENDS ${files})
  if(VELK_INSTALL)
    install(FILES ${folder}/${program} COMPONENT tools
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${folder}/_${program} COMPONENT tools
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    install(FILES ${folder}/${program}.fish COMPONENT tools
            DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  endif()
endfunction()
