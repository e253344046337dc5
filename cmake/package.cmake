# CPack, from an installed build:
#   cpack --preset release    build/release/libvantyx_X.Y.Z_amd64.deb (the library and the tool)
#   cpack --preset windows    build/windows/vantyx-X.Y.Z-win64.zip
set(CPACK_PACKAGE_VENDOR "The Vantyx authors")
set(CPACK_PACKAGE_CONTACT "The Vantyx authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Film-look effects for 8-bit BGRA frames")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME vantyx-${PROJECT_VERSION}-win64)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_PACKAGE_NAME libvantyx)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
      "A C++ library that photo and video editors load to give their frames film\n"
      "looks, with the header, CMake and pkg-config files to build against it and\n"
      "the vantyx command-line tool for PNG and JPEG pictures and raw video.")
  string(JOIN "" CPACK_DEBIAN_PACKAGE_DESCRIPTION ${CPACK_DEBIAN_PACKAGE_DESCRIPTION})
  # Depends from the binaries' own needs (dpkg-shlibdeps), and a shlibs file so that packages
  # built against this one depend on it by SONAME.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
endif()
include(CPack)
