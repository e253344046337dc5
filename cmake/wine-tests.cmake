# Running the cross-built tests under wine.
#
# One wine prefix inside the build tree (created by the first run, 6-18 s, then reused) and one
# persistent wineserver for the whole ctest run. The setup test starts the server and wine's
# services with every stream redirected; otherwise each test would start its own services
# (about 3 s each), and services that inherit ctest's output pipe would hold it open forever.
# The cleanup test stops the server.
#
# Tests added with add_test(NAME x COMMAND <target>) get wine prepended through
# CMAKE_CROSSCOMPILING_EMULATOR; vantyx_wine_test() adds the fixture and the environment.

if(NOT VANTYX_WINE64 OR NOT VANTYX_WINESERVER)
  message(FATAL_ERROR "wine64 and wineserver64 are needed to run the Windows tests "
                      "(Debian: apt-get install wine64), or configure with -DVANTYX_BUILD_TESTS=OFF")
endif()

set(VANTYX_WINEPREFIX ${PROJECT_BINARY_DIR}/wineprefix)
set(VANTYX_WINE_ENV
  "WINEPREFIX=${VANTYX_WINEPREFIX}"
  # Quiet, except for a DLL that cannot be loaded (else a test just dies with no message).
  "WINEDEBUG=-all,err+module"
  # No Mono or Gecko: nothing here uses .NET or HTML, and their installers would prompt.
  "WINEDLLOVERRIDES=mscoree,mshtml="
  "WINE=${VANTYX_WINE64}"
  "WINESERVER=${VANTYX_WINESERVER}"
  "DISPLAY=")

add_test(NAME wine.start COMMAND sh ${PROJECT_SOURCE_DIR}/cmake/wine-fixture.sh start)
add_test(NAME wine.stop COMMAND sh ${PROJECT_SOURCE_DIR}/cmake/wine-fixture.sh stop)
set_tests_properties(wine.start PROPERTIES FIXTURES_SETUP wine ENVIRONMENT "${VANTYX_WINE_ENV}"
                                           TIMEOUT 300 LABELS wine)
set_tests_properties(wine.stop PROPERTIES FIXTURES_CLEANUP wine ENVIRONMENT "${VANTYX_WINE_ENV}"
                                          TIMEOUT 60 LABELS wine)

# Marks tests (in the calling directory) as running under wine.
function(vantyx_wine_test)
  set_tests_properties(${ARGN} PROPERTIES FIXTURES_REQUIRED wine ENVIRONMENT "${VANTYX_WINE_ENV}")
endfunction()
