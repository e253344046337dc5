# Cross build of the 64-bit Windows DLL with mingw-w64 (posix threads model); tests run under wine.
#   cmake -S . -B build/windows -G Ninja --toolchain cmake/toolchain-mingw64.cmake
# or simply: cmake --workflow --preset windows
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VANTYX_MINGW_TRIPLE x86_64-w64-mingw32)
# The -posix compilers: the thread pool is written against pthreads (winpthread on Windows).
set(CMAKE_C_COMPILER ${VANTYX_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VANTYX_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VANTYX_MINGW_TRIPLE}-windres)

# Look for target libraries and headers only in the mingw sysroot, for tools only on the host.
set(CMAKE_FIND_ROOT_PATH /usr/${VANTYX_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Everything static: the DLL and every executable then import only KERNEL32 and msvcrt
# (no libstdc++-6.dll, libgcc_s or libwinpthread-1.dll to ship beside them).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Debian's /usr/bin/wine64 wrapper complains about a missing 32-bit wine: call the real binaries.
find_program(VANTYX_WINE64 NAMES wine64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
find_program(VANTYX_WINE64 NAMES wine64 wine)
find_program(VANTYX_WINESERVER NAMES wineserver64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
find_program(VANTYX_WINESERVER NAMES wineserver64 wineserver)
if(VANTYX_WINE64)
  # Prepended to add_test(NAME x COMMAND <target>) only, not to $<TARGET_FILE:...> commands.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VANTYX_WINE64})
endif()
