# SPDX-License-Identifier: MIT
# Removes the files that `cmake --install FOLDER` has listed. As a script: cmake -D FOLDER=... -P Uninstall.cmake
file(GLOB manifests ${FOLDER}/install_manifest*.txt)
if(NOT manifests)
  message(FATAL_ERROR "nothing was installed from ${FOLDER}")
endif()
foreach(manifest ${manifests})
  file(STRINGS ${manifest} files)
  foreach(file ${files})
    message(STATUS "Removing $ENV{DESTDIR}${file}")
    file(REMOVE $ENV{DESTDIR}${file})
  endforeach()
  file(REMOVE ${manifest})
endforeach()
