# SPDX-License-Identifier: MIT
# Extracts the first C++ block of a Markdown page, so that the build compiles exactly that example.
# As a script: cmake -D PAGE=... -D SOURCE=... -P ReadmeExample.cmake
function(velk_extract_example page source)
  file(READ ${page} text)
  string(REGEX MATCH "```cpp\n(.*)" rest "${text}")
  string(FIND "${CMAKE_MATCH_1}" "```" end)
  string(SUBSTRING "${CMAKE_MATCH_1}" 0 ${end} code)
  file(CONFIGURE OUTPUT ${source} CONTENT "${code}" @ONLY)
  if(NOT CMAKE_SCRIPT_MODE_FILE)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
  endif()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
  velk_extract_example(${PAGE} ${SOURCE})
endif()
