# The version comes from include/vantyx.h, the one place it is written: the project, the SONAME,
# the CMake package, vantyx.pc and the Debian and Windows packages all take it from there.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../include/vantyx.h vantyx_version_lines
     REGEX "^#define VANTYX_VERSION_(MAJOR|MINOR|PATCH) +[0-9]+ *$")
set(VANTYX_VERSION "")
foreach(part MAJOR MINOR PATCH)
  if(NOT vantyx_version_lines MATCHES "VANTYX_VERSION_${part} +([0-9]+)")
    message(FATAL_ERROR "include/vantyx.h lacks #define VANTYX_VERSION_${part}")
  endif()
  string(APPEND VANTYX_VERSION "${CMAKE_MATCH_1}.")
endforeach()
string(REGEX REPLACE "\\.$" "" VANTYX_VERSION "${VANTYX_VERSION}")
