# SPDX-License-Identifier: MIT
# velk_room(NAME SEES ROOM... SOURCES FILE...): adds the sources of one folder to the library. They are
# compiled only with the headers of the rooms that they may call.
set_property(GLOBAL PROPERTY VELK_HEADERS_OF_include ${PROJECT_SOURCE_DIR}/include)
set_property(GLOBAL PROPERTY VELK_HEADERS_OF_platform ${PROJECT_SOURCE_DIR}/platform/include)

function(velk_room name)
  cmake_parse_arguments(room "" "" "SEES;SOURCES" ${ARGN})
  list(TRANSFORM room_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set(include_dirs)
  foreach(seen ${room_SEES})
    get_property(dirs GLOBAL PROPERTY VELK_HEADERS_OF_${seen})
    list(APPEND include_dirs ${dirs})
  endforeach()
  add_library(velk_room_${name} OBJECT ${room_SOURCES})
  target_include_directories(velk_room_${name} PRIVATE ${include_dirs})
  target_link_libraries(velk_room_${name} PRIVATE velk_options Threads::Threads)
  # Calls inside the library are bound at link time; interposing its functions is not supported.
  target_compile_options(velk_room_${name} PRIVATE -fno-semantic-interposition)
  set_target_properties(velk_room_${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_sources(velkcantransport PRIVATE $<TARGET_OBJECTS:velk_room_${name}>)
  get_property(own GLOBAL PROPERTY VELK_HEADERS_OF_${name})
  if(NOT own)
    set_property(GLOBAL PROPERTY VELK_HEADERS_OF_${name} ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  set_property(GLOBAL APPEND PROPERTY VELK_LIBRARY_SOURCES ${room_SOURCES})
endfunction()
