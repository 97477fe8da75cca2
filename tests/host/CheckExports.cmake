# Fails unless the module's dynamic symbol table defines exactly TriglavPluginCall.
#   cmake -DMODULE=path/to/brivane.so -P CheckExports.cmake
find_program(NM nm REQUIRED)
execute_process(COMMAND ${NM} -D --defined-only ${MODULE}
                OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "nm failed on ${MODULE}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(names "")
foreach(line ${lines})
    string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] +" "" name "${line}")
    list(APPEND names "${name}")
endforeach()
if(NOT names STREQUAL "TriglavPluginCall")
    message(FATAL_ERROR "the module exports: ${names}")
endif()
message(STATUS "the module exports only TriglavPluginCall")
