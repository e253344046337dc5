# The Windows zip as a host's developer gets it (see tests/windows/CMakeLists.txt for the
# settings): made with CPack, it must hold exactly the expected files; unpacked, it is all that
# the MSVC test hosts need to be built and to run under wine (their frames must be the Linux
# ones), and its tool runs the demo with the photos it carries.
cmake_minimum_required(VERSION 3.25)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out
                  ${run_options})
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
run("cpack" ${CPACK} --config ${BUILD}/CPackConfig.cmake -G ZIP -B ${WORK})
set(zip ${WORK}/${TOP}.zip)

set(expected LICENSE.txt README-windows.txt bin/vantyx.dll include/vantyx.h lib/vantyx.dll.a
             lib/vantyx.lib)
if(TOOL)
  list(APPEND expected bin/vantyx.exe share/vantyx/assets/coffee.png share/vantyx/assets/rocket.jpg)
endif()
file(STRINGS ${PLUGINS} plugins)
list(APPEND expected ${plugins})
list(TRANSFORM expected PREPEND ${TOP}/)
list(SORT expected)

execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${zip} OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot list ${zip}")
endif()
string(REGEX REPLACE "\n$" "" listing "${listing}")
string(REPLACE "\n" ";" entries "${listing}")
list(FILTER entries EXCLUDE REGEX "/$")  # folders
list(SORT entries)
if(NOT entries STREQUAL expected)
  message(FATAL_ERROR "${zip} holds\n  ${entries}\nexpected\n  ${expected}")
endif()

set(unpacked ${WORK}/unpacked)
file(MAKE_DIRECTORY ${unpacked})
set(run_options WORKING_DIRECTORY ${unpacked})
run("unpacking" ${CMAKE_COMMAND} -E tar xf ${zip})
set(bin ${unpacked}/${TOP}/bin)

# The MSVC hosts, compiled with the zip's header only and linked with its import library only,
# next to its DLL.
set(copy ${WORK}/frame_host.cpp)  # away from the source tree's include/
file(COPY_FILE ${HOST_SOURCE} ${copy})
set(run_options "")
foreach(form dynamic linked)
  set(define "")
  set(implib "")
  if(form STREQUAL "linked")
    set(define /DVANTYX_HOST_LINKED)
    set(implib ${unpacked}/${TOP}/lib/vantyx.lib)
  endif()
  set(exe ${bin}/msvc_host_${form}.exe)
  run("compiling msvc_host_${form}" ${CLANG_CL} ${CL_FLAGS} ${define} -I${unpacked}/${TOP}/include
      /Fo${WORK}/msvc_host_${form}.obj -- ${copy})
  run("linking msvc_host_${form}" ${LLD_LINK} ${LINK_FLAGS} /out:${exe}
      ${WORK}/msvc_host_${form}.obj ${KERNEL32} ${implib})
  set(frames ${WORK}/frames-${form})
  file(MAKE_DIRECTORY ${frames})
  set(run_options WORKING_DIRECTORY ${frames})
  run("msvc_host_${form} with the zip's DLL" ${WINE} ${exe})
  set(run_options "")
  list(APPEND all_frames ${frames})
endforeach()
run("comparing frames" ${CMAKE_COMMAND} -DREFERENCE=${LINUX_FRAMES} "-DOTHERS=${all_frames}"
    -DROW_BYTES=268 -P ${COMPARE})

if(TOOL)
  set(run_options WORKING_DIRECTORY ${WORK})
  run("vantyx.exe demo from the zip" ${WINE} ${bin}/vantyx.exe demo --out demo)
  file(GLOB sheets ${WORK}/demo/*-sheet.png)
  if(NOT sheets)
    message(FATAL_ERROR "vantyx.exe demo wrote no before/after sheet")
  endif()
endif()
message(STATUS "${zip}: ${entries}")
