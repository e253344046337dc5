# cmake -DOBJDUMP=... -DFILES="a.dll;b.exe" -P check_imports.cmake
# Fails unless every file imports from KERNEL32.dll and msvcrt.dll only (and vantyx.dll, for a
# host linked to it): everything is linked statically, so no libstdc++, libgcc or
# libwinpthread DLL has to travel with the library.
cmake_minimum_required(VERSION 3.25)
foreach(file ${FILES})
  execute_process(COMMAND ${OBJDUMP} -p ${file} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "could not read the imports of ${file}")
  endif()
  string(REGEX MATCHALL "DLL Name: [^\n]+" lines "${out}")
  string(REPLACE "DLL Name: " "" dlls "${lines}")
  string(TOLOWER "${dlls}" dlls)
  set(others ${dlls})
  list(REMOVE_ITEM others kernel32.dll msvcrt.dll vantyx.dll)
  if(others OR NOT "kernel32.dll" IN_LIST dlls)
    message(FATAL_ERROR "${file} imports '${dlls}'; only KERNEL32.dll and msvcrt.dll are expected")
  endif()
  get_filename_component(name ${file} NAME)
  message(STATUS "${name}: ${dlls}")
endforeach()
