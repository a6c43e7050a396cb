# Checks what README.md says about the options of the build. Run with cmake -P and -DSOURCE=<project>,
# -DBINARY=<directory to be used>, -DGENERATOR=<name>, -DCOMPILER=<C++ compiler>,
# -DPACKAGES=<options that say where the packages are>.
#
# Nothing is compiled: the commands of a configured tree show what a build would do.
cmake_minimum_required(VERSION 3.20)

# configure(NAME OPTION...): configures a tree, and sets `tree` to its directory and `commands` to its
# compile commands.
function(configure name)
    set(directory "${BINARY}/${name}")
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${directory}" -G "${GENERATOR}"
            "-DCMAKE_CXX_COMPILER=${COMPILER}" ${PACKAGES} ${ARGN}
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        file(REMOVE_RECURSE "${BINARY}")
        message(FATAL_ERROR "${name}: the configuration ended with status ${status}: ${output}")
    endif()
    file(READ "${directory}/compile_commands.json" text)
    set(tree "${directory}" PARENT_SCOPE)
    set(commands "${text}" PARENT_SCOPE)
endfunction()

# expect(WHAT YES|NO TEXT): whether TEXT must be found in the variable WHAT.
function(expect what expected text)
    string(FIND "${${what}}" "${text}" place)
    if((expected AND place EQUAL -1) OR (NOT expected AND NOT place EQUAL -1))
        message(SEND_ERROR "In ${what} of ${tree}, ${expected} was expected for: ${text}")
    endif()
endfunction()

# without(VARIABLE PACKAGE...): sets VARIABLE to options that make packages look as though they were not
# installed.
function(without variable)
    set(options ${ARGN})
    list(TRANSFORM options REPLACE "(.+)" "-DCMAKE_DISABLE_FIND_PACKAGE_\\1=ON")
    set(${variable} ${options} PARENT_SCOPE)
endfunction()

set(launchlist "${SOURCE}/tools/launchlist/log/log_bytes.cpp")
set(launcher "${SOURCE}/launcher/main.cpp")
set(our_log_library "CMakeFiles/qv7log.dir/logger.cpp")
set(tests "${SOURCE}/tests/")

# Without zlib, launchlist is built and reads no compressed logs (log_bytes_without_zlib_test).
# KESTRANE_BUILD_TESTS=OFF omits the tests, which alone need GoogleTest and Python.
without(missing ZLIB GTest Python3)
configure(no_tests -DKESTRANE_BUILD_TESTS=OFF ${missing})
expect(commands YES "${launcher}")
expect(commands YES "${our_log_library}")
expect(commands YES "${launchlist}")
expect(commands NO "KESTRANE_HAVE_ZLIB")
expect(commands NO "${tests}")

# KESTRANE_BUILD_LAUNCHLIST=OFF omits launchlist, which alone needs CLI11 and zlib.
# KESTRANE_LOG_LIBRARY links and installs another library instead of ours.
set(library "${BINARY}/libqv7log_of_the_product.so")
file(WRITE "${library}" "")
without(missing CLI11 ZLIB)
configure(no_launchlist -DKESTRANE_BUILD_LAUNCHLIST=OFF ${missing} "-DKESTRANE_LOG_LIBRARY=${library}")
expect(commands YES "${launcher}")
expect(commands YES "${tests}")
expect(commands NO "${launchlist}")
expect(commands NO "${our_log_library}")
execute_process(
    COMMAND "${CMAKE_COMMAND}" --build "${tree}" --target launcher --verbose -- -n
    OUTPUT_VARIABLE build ERROR_VARIABLE build COMMAND_ERROR_IS_FATAL ANY)
expect(build YES "${library}")
execute_process(
    COMMAND "${CMAKE_COMMAND}" "-DCMAKE_INSTALL_PREFIX=${BINARY}/prefix" -P "${tree}/qv7log/cmake_install.cmake"
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE installed RELATIVE "${BINARY}/prefix" "${BINARY}/prefix/*")
if(NOT installed STREQUAL "Kestrane.app/Contents/Frameworks/libqv7log_of_the_product.so")
    message(SEND_ERROR "Another logging library is installed as: ${installed}")
endif()
file(REMOVE_RECURSE "${BINARY}")
