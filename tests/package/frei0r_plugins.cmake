# vantyx_frei0r_plugin_list(FILE) writes the file names of the frei0r plugins into FILE, one a
# line (an empty file while there are none): the MODULE libraries of a folder or a target whose
# name says frei0r. Written once the whole project has been read, wherever the plugins are added.
function(vantyx_frei0r_plugin_list file)
  # A deferred call's arguments are read when it runs: put the name in now.
  cmake_language(EVAL CODE "cmake_language(DEFER DIRECTORY [[${PROJECT_SOURCE_DIR}]]
                                           CALL _vantyx_frei0r_plugin_list [[${file}]])")
endfunction()

function(_vantyx_frei0r_plugin_list file)
  set(dirs ${PROJECT_SOURCE_DIR})
  set(names "")
  while(dirs)
    list(POP_FRONT dirs dir)
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    list(APPEND dirs ${subdirs})
    file(RELATIVE_PATH where ${PROJECT_SOURCE_DIR} ${dir})
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
      get_target_property(type ${target} TYPE)
      if(type STREQUAL "MODULE_LIBRARY" AND "${where}/${target}" MATCHES "frei0r")
        list(APPEND names "$<TARGET_FILE_NAME:${target}>")
      endif()
    endforeach()
  endwhile()
  list(JOIN names "\n" content)
  file(GENERATE OUTPUT "${file}" CONTENT "${content}\n")
endfunction()
