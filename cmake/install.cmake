# What `cmake --install` puts where (GNUInstallDirs folders):
#
#   Linux                                      Windows
#   include/vantyx.h                           include/vantyx.h
#   <libdir>/libvantyx.so.X.Y.Z, .so.X, .so    bin/vantyx.dll
#   <libdir>/cmake/Vantyx/ (find_package)      lib/vantyx.lib (MSVC), lib/vantyx.dll.a (mingw)
#   <libdir>/pkgconfig/vantyx.pc               LICENSE.txt, README-windows.txt
#   share/doc/libvantyx/copyright
#
# The tool (bin/vantyx and its sample photos) is installed by tools/, the frei0r plugins by their
# own folder, into <libdir>/frei0r-1 where frei0r hosts look.

install(FILES ${PROJECT_SOURCE_DIR}/include/vantyx.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(WIN32)
  install(TARGETS vantyx RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
                         ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

  # An import library in the format MSVC's linker reads (mingw's vantyx.dll.a is GNU's format),
  # made from the export list the linker writes beside the DLL.
  find_program(VANTYX_DLLTOOL NAMES llvm-dlltool llvm-dlltool-16 llvm-dlltool-15 llvm-dlltool-14)
  if(NOT VANTYX_DLLTOOL)
    message(FATAL_ERROR "llvm-dlltool is needed for the MSVC import library vantyx.lib "
                        "(Debian: apt-get install llvm)")
  endif()
  set(VANTYX_DEF ${PROJECT_BINARY_DIR}/vantyx.def)
  set(VANTYX_MSVC_IMPLIB ${PROJECT_BINARY_DIR}/vantyx.lib)
  target_link_options(vantyx PRIVATE "LINKER:--output-def,${VANTYX_DEF}")
  add_custom_command(OUTPUT ${VANTYX_MSVC_IMPLIB}
    COMMAND ${VANTYX_DLLTOOL} -m i386:x86-64 -D vantyx.dll -d ${VANTYX_DEF} -l ${VANTYX_MSVC_IMPLIB}
    DEPENDS vantyx
    COMMENT "MSVC import library vantyx.lib")
  add_custom_target(vantyx_msvc_implib ALL DEPENDS ${VANTYX_MSVC_IMPLIB})
  install(FILES ${VANTYX_MSVC_IMPLIB} DESTINATION ${CMAKE_INSTALL_LIBDIR})

  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION . RENAME LICENSE.txt)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/README-windows.txt DESTINATION .)
  return()
endif()

install(TARGETS vantyx EXPORT VantyxTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvantyx
        RENAME copyright)

# find_package(Vantyx): the imported target Vantyx::vantyx. A host built against version X.Y
# runs with any later X.*: the same rule as the SONAME (docs/abi.md).
include(CMakePackageConfigHelpers)
set(VANTYX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Vantyx)
install(EXPORT VantyxTargets NAMESPACE Vantyx:: DESTINATION ${VANTYX_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VantyxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VantyxConfig.cmake INSTALL_DESTINATION ${VANTYX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantyxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VantyxConfig.cmake ${PROJECT_BINARY_DIR}/VantyxConfigVersion.cmake
        DESTINATION ${VANTYX_CMAKE_DIR})

# vantyx.pc holds absolute paths, so it is written at install time for the prefix really
# installed to (`cmake --install --prefix`, DESTDIR and the Debian package's /usr alike).
set(VANTYX_PC_PREFIX "@VANTYX_PC_PREFIX@")  # filled in at install time
configure_file(${PROJECT_SOURCE_DIR}/cmake/vantyx.pc.in ${PROJECT_BINARY_DIR}/vantyx.pc.in @ONLY)
install(CODE "set(VANTYX_PC_TEMPLATE \"${PROJECT_BINARY_DIR}/vantyx.pc.in\")
              set(VANTYX_PC_DIR \"${CMAKE_INSTALL_LIBDIR}/pkgconfig\")")
install(CODE [[
  set(VANTYX_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(pc "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${VANTYX_PC_DIR}/vantyx.pc")
  message(STATUS "Installing: ${pc}")
  configure_file("${VANTYX_PC_TEMPLATE}" "${pc}" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${pc}")
]])
