# The library exports its two functions and nothing else.
execute_process(COMMAND ${NM} -D --defined-only -P ${LIBRARY} OUTPUT_VARIABLE symbols
    COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE " [^\n]*" "" names "${symbols}")
if(NOT names STREQUAL "GetLogger\nInitLogger\n")
    message(FATAL_ERROR "exported: ${names}")
endif()
