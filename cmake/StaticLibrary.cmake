# SPDX-License-Identifier: MIT
# The library as an archive, for tests that are impossible with a shared library: a program's own millisleep()
# replaces the library's, the linker can wrap its calls, and checkInvariants() is active in every build type.
get_property(sources GLOBAL PROPERTY VELK_LIBRARY_SOURCES)
add_library(velk_static STATIC ${sources})
target_compile_features(velk_static PUBLIC cxx_std_17)
target_compile_options(velk_static PUBLIC -UNDEBUG)
target_include_directories(velk_static
  PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src/base ${PROJECT_SOURCE_DIR}/src/reception)
target_link_libraries(velk_static PRIVATE velk_options PUBLIC Threads::Threads)
if(VELK_BUILD_FUZZERS)
  target_compile_options(velk_static PUBLIC
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  target_link_options(velk_static INTERFACE -fsanitize=address,undefined)
endif()
