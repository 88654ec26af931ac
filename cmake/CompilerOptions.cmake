# SPDX-License-Identifier: MIT
# Options for the project's own targets; consumers get none of them.
add_library(velk_options INTERFACE)
target_compile_options(velk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
  -Wnon-virtual-dtor -Wnull-dereference -Wformat=2
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${VELK_WARNINGS_AS_ERRORS}>:-Werror>)

if(VELK_SANITIZE)
  # For the whole tree: a sanitizer checks only code that was compiled with it.
  # Without vptr: that check opens a pipe to probe memory. If a test has used up the descriptors, it
  # reports every object as invalid.
  add_compile_options(-fsanitize=${VELK_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VELK_SANITIZE})
endif()
