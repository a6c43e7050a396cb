# Checks which versions cmake/KestraneSupported.cmake accepts. Run with cmake -P and -DSOURCE=<project>,
# -DBINARY=<directory to be used>, -DGENERATOR=<name>, -DCOMPILER=<C++ compiler>.
#
# With -DREQUIRE=<function;arguments>, only calls that function, which may fail.
cmake_minimum_required(VERSION 3.20)
include("${SOURCE}/cmake/KestraneSupported.cmake")

if(REQUIRE)
    list(POP_FRONT REQUIRE function)
    cmake_language(CALL ${function} ${REQUIRE})
    return()
endif()

# expect(ACCEPTED TEXT FUNCTION ARGUMENT...): calls the function in another CMake, which must succeed
# or fail, and print TEXT.
function(expect accepted text)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" "-DSOURCE=${SOURCE}" "-DREQUIRE=${ARGN}" -P "${CMAKE_CURRENT_LIST_FILE}"
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    if((accepted AND NOT status EQUAL 0) OR (NOT accepted AND status EQUAL 0))
        message(SEND_ERROR "${ARGN}: status ${status}, ${output}")
    endif()
    string(FIND "${output}" "${text}" found)
    if(found EQUAL -1)
        message(SEND_ERROR "${ARGN}: \"${text}\" is missing in: ${output}")
    endif()
endfunction()

expect(NO "GCC 11.4.0 is too old: this project needs GCC 12 or newer." kestrane_require_compiler GNU 11.4.0)
expect(YES "" kestrane_require_compiler GNU 12)
expect(YES "" kestrane_require_compiler GNU 14.2.0)
expect(NO "Clang 13.0.1 is too old: this project needs Clang 14 or newer." kestrane_require_compiler Clang 13.0.1)
expect(YES "" kestrane_require_compiler Clang 14.0.0)
expect(NO "AppleClang 13.1.6 is too old" kestrane_require_compiler AppleClang 13.1.6)
expect(YES "" kestrane_require_compiler AppleClang 17.0.0)
expect(YES "not one that this project is tested with" kestrane_require_compiler Intel 2021.1)
expect(NO "jsoncpp 1.8.3 is too old: this project needs jsoncpp 1.8.4 or newer." kestrane_require jsoncpp 1.8.3 1.8.4)
expect(YES "" kestrane_require jsoncpp 1.8.4 1.8.4)
expect(YES "" kestrane_require jsoncpp 1.10.0 1.8.4)

# The project calls the function: with an old jsoncpp first in the search path, configuring it fails.
set(prefix "${BINARY}/old_jsoncpp")
file(WRITE "${prefix}/lib/cmake/jsoncpp/jsoncppConfig.cmake" "set(jsoncpp_FOUND YES)\n")
file(WRITE "${prefix}/lib/cmake/jsoncpp/jsoncppConfigVersion.cmake"
    "set(PACKAGE_VERSION 1.7.7)\nset(PACKAGE_VERSION_COMPATIBLE YES)\n")
execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BINARY}/build" -G "${GENERATOR}"
        "-DCMAKE_CXX_COMPILER=${COMPILER}" "-Djsoncpp_DIR=${prefix}/lib/cmake/jsoncpp"
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(status EQUAL 0 OR NOT output MATCHES "jsoncpp 1.7.7 is too old")
    message(SEND_ERROR "A configuration with jsoncpp 1.7.7 ended with status ${status}: ${output}")
endif()
file(REMOVE_RECURSE "${BINARY}")
