# Options of the project's own targets; a consumer gets none of them.
add_library(velk_options INTERFACE)
target_compile_options(velk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
  -Wnon-virtual-dtor -Wnull-dereference -Wformat=2
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${VELK_WARNINGS_AS_ERRORS}>:-Werror>)

if(VELK_SANITIZE)
  # For the whole tree: a sanitizer sees only what was compiled with it.
  # Without vptr: that check opens a pipe to look at the memory, and takes every object for a wrong
  # one where a test has used up the descriptors.
  add_compile_options(-fsanitize=${VELK_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VELK_SANITIZE})
endif()
