# Takes the first C++ block out of a Markdown page, so that the page's example is what is built.
function(velk_extract_example page source)
  file(READ ${page} text)
  string(REGEX MATCH "```cpp\n(.*)" rest "${text}")
  string(FIND "${CMAKE_MATCH_1}" "```" end)
  string(SUBSTRING "${CMAKE_MATCH_1}" 0 ${end} code)
  file(CONFIGURE OUTPUT ${source} CONTENT "${code}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
endfunction()
