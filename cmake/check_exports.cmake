# Lists the defined dynamic symbols of LIB and fails unless they are exactly the two entry points.
if(LIB MATCHES "\\.dll$")
  execute_process(COMMAND ${OBJDUMP} -p ${LIB} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  # The export table's name list: the lines "[ordinal] name" right after "[Ordinal/Name Pointer]
  # Table", up to the blank line (later sections such as the relocations use brackets too).
  string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([ \t]*\\[[ 0-9]+\\][^\n]*\n)*)"
         table "${out}")
  string(REGEX MATCHALL "\\][ \t]+[A-Za-z_][A-Za-z0-9_@]*" hits "${CMAKE_MATCH_1}")
  # Strip the brackets from the joined string: a list element that holds an unmatched "]"
  # does not split on ";" the usual way.
  string(REGEX REPLACE "\\][ \t]+" "" symbols "${hits}")
else()
  execute_process(COMMAND ${NM} -D --defined-only ${LIB} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
  string(REGEX MATCHALL "[0-9a-fA-F]+ [A-Za-z] [^\n]+" lines "${out}")
  set(symbols "")
  foreach(l ${lines})
    string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" s "${l}")
    list(APPEND symbols ${s})
  endforeach()
endif()
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "could not list the symbols of ${LIB}")
endif()
list(SORT symbols)
if(NOT symbols STREQUAL "CreateVantyxEngine;DeleteVantyxEngine")
  message(FATAL_ERROR "exported symbols of ${LIB}: '${symbols}', expected exactly CreateVantyxEngine and DeleteVantyxEngine")
endif()
message(STATUS "exports: ${symbols}")
