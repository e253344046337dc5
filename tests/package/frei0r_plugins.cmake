# vantyx_frei0r_plugin_list(FILE) writes where the frei0r plugins are installed into FILE, one
# path relative to the install prefix a line (an empty file while there are none). A plugin is a
# MODULE library of a folder or a target whose name says frei0r (test folders aside), installed
# into VANTYX_INSTALL_FREI0RDIR, else <libdir>/frei0r-1. The file is written once the whole
# project has been read, wherever the plugins are added.
function(vantyx_frei0r_plugin_list file)
  # A deferred call's arguments are read when it runs: put the name in now.
  cmake_language(EVAL CODE "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]]
                                           CALL _vantyx_frei0r_plugin_list [[${file}]])")
endfunction()

function(_vantyx_frei0r_plugin_list file)
  set(folder ${CMAKE_INSTALL_LIBDIR}/frei0r-1)
  if(VANTYX_INSTALL_FREI0RDIR)
    set(folder ${VANTYX_INSTALL_FREI0RDIR})
  endif()
  set(dirs ${PROJECT_SOURCE_DIR})
  set(paths "")
  while(dirs)
    list(POP_FRONT dirs dir)
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    list(APPEND dirs ${subdirs})
    file(RELATIVE_PATH where ${PROJECT_SOURCE_DIR} ${dir})
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
      get_target_property(type ${target} TYPE)
      if(type STREQUAL "MODULE_LIBRARY" AND "${where}/${target}" MATCHES "frei0r"
         AND NOT where MATCHES "(^|/)tests?(/|$)")
        list(APPEND paths "${folder}/$<TARGET_FILE_NAME:${target}>")
      endif()
    endforeach()
  endwhile()
  list(JOIN paths "\n" content)
  file(GENERATE OUTPUT "${file}" CONTENT "${content}\n")
endfunction()
