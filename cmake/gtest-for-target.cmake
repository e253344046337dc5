# GoogleTest built from source with the cross toolchain: the host's packaged GoogleTest is a
# Linux library. Gives the same GTest::gtest and GTest::gtest_main targets as find_package.
set(VANTYX_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build for the target")
if(NOT EXISTS ${VANTYX_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${VANTYX_GTEST_SOURCE_DIR} (Debian: googletest package)")
endif()
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${VANTYX_GTEST_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
