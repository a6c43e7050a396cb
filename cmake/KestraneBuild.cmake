# Build settings for all targets, and where the bundle goes in an installation.
include_guard()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(KESTRANE_BUNDLE "Kestrane.app/Contents")
set(KESTRANE_MACOS_DIR "${KESTRANE_BUNDLE}/MacOS")
set(KESTRANE_FRAMEWORKS_DIR "${KESTRANE_BUNDLE}/Frameworks")
set(KESTRANE_MAN_DIR "share/man")

# The language standard, the one include path of our own (the project root) and the warnings.
# Warnings become errors only where a caller asks for it (CMAKE_COMPILE_WARNING_AS_ERROR).
add_library(kestrane_build INTERFACE)
target_compile_features(kestrane_build INTERFACE cxx_std_17)
target_include_directories(kestrane_build INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(kestrane_build INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough)

# Sanitizers and coverage apply to all of our own code, the shared library included. With a sanitizer,
# tests run under KESTRANE_TEST_LAUNCHER, which collects the sanitizer's reports.
set(KESTRANE_SANITIZE "" CACHE STRING
    "Sanitizers to build with: \"address,undefined\", \"thread\" or \"undefined\"")
option(KESTRANE_COVERAGE "Count which lines and branches run" OFF)
set(KESTRANE_TEST_LAUNCHER "")
set(KESTRANE_TEST_TIMEOUT 120)
if(KESTRANE_SANITIZE)
    add_compile_options(-fsanitize=${KESTRANE_SANITIZE} -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${KESTRANE_SANITIZE})
    set(KESTRANE_TEST_LAUNCHER "${PROJECT_SOURCE_DIR}/tests/sanitizers/without_reports.sh")
    set(KESTRANE_TEST_TIMEOUT 600)
endif()
if(KESTRANE_BUILD_FUZZERS)
    # Instruments the code for the fuzzer, and stops at the first report.
    add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize-recover=all)
endif()
if(KESTRANE_COVERAGE)
    # Atomic, because several threads count. GCC would replace fork with a function that takes a lock
    # between a supervisor's check of its run flag and the fork, so a stop would miss more children.
    add_compile_options(--coverage -fprofile-update=atomic -fno-builtin-fork)
    add_link_options(--coverage)
    set(KESTRANE_TEST_TIMEOUT 600)
endif()

# Checks at run time: the program is aborted when it writes beyond an array on the stack or beyond an
# object whose size the compiler knows, and the stack cannot grow past its guard page unnoticed.
# _FORTIFY_SOURCE works only with optimisation. OFF is for measuring what the checks cost.
option(KESTRANE_HARDEN "Build the Linux programs and libraries with run-time checks" ON)
if(KESTRANE_HARDEN AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_compile_options(-fstack-protector-strong -fstack-clash-protection
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    add_link_options(LINKER:-z,relro LINKER:-z,now)
endif()

# kestrane_library(NAME SOURCES... LIBS ...): the static library of one directory, target
# kestrane_NAME.
function(kestrane_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_library(kestrane_${name} STATIC ${ARG_SOURCES})
    target_link_libraries(kestrane_${name} PUBLIC kestrane_build ${ARG_LIBS})
endfunction()

# kestrane_test(FILE [TARGET VARIABLE] SOURCES ... LIBS ...): the GoogleTest program of one test file.
# The name comes from the file: tests/util/split_test.cpp is the target and test "util_split_test".
# VARIABLE receives the target's name.
function(kestrane_test file)
    cmake_parse_arguments(ARG "" "TARGET" "SOURCES;LIBS" ${ARGN})
    file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}/tests" "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
    string(REGEX REPLACE "\\.cpp$" "" name "${name}")
    string(REPLACE "/" "_" name "${name}")
    add_executable(${name} ${file} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE kestrane_build ${ARG_LIBS} GTest::gtest_main)
    add_test(NAME ${name} COMMAND ${KESTRANE_TEST_LAUNCHER} $<TARGET_FILE:${name}>)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${KESTRANE_TEST_TIMEOUT})
    if(ARG_TARGET)
        set(${ARG_TARGET} ${name} PARENT_SCOPE)
    endif()
endfunction()
