# Build settings for all targets, and where the bundle goes in an installation.
include_guard()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug or Release" FORCE)
endif()
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# A package keeps the bundle away from the directories in which the system searches.
set(KESTRANE_BUNDLE_PARENT "" CACHE STRING
    "Directory below the prefix that holds Kestrane.app, if not the prefix itself")
set(KESTRANE_BUNDLE "Kestrane.app/Contents")
if(KESTRANE_BUNDLE_PARENT)
    string(PREPEND KESTRANE_BUNDLE "${KESTRANE_BUNDLE_PARENT}/")
endif()
set(KESTRANE_MACOS_DIR "${KESTRANE_BUNDLE}/MacOS")
set(KESTRANE_FRAMEWORKS_DIR "${KESTRANE_BUNDLE}/Frameworks")
set(KESTRANE_MAN_DIR "share/man")
set(KESTRANE_DATA_DIR "share/kestrane-launcher")
set(KESTRANE_DOC_DIR "share/doc/kestrane-launcher")

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

include(KestraneShipped)

# kestrane_library(NAME SOURCES... LIBS ...): the static library of one directory, target
# kestrane_NAME.
function(kestrane_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_library(kestrane_${name} STATIC ${ARG_SOURCES})
    target_link_libraries(kestrane_${name} PUBLIC kestrane_build ${ARG_LIBS})
endfunction()

# kestrane_shipped(TARGET): for each program and library of the bundle. A program for macOS contains the
# paths of its object files only if KESTRANE_DEBUG_MAP is set, because only dsymutil needs them. On Linux
# TARGET.map lists what has been linked in (scripts/release/third_party.py).
option(KESTRANE_DEBUG_MAP "Keep the references to object files in programs for macOS" OFF)
function(kestrane_shipped target)
    if(NOT APPLE)
        target_link_options(${target} PRIVATE "LINKER:-Map=${PROJECT_BINARY_DIR}/${target}.map")
    elseif(NOT KESTRANE_DEBUG_MAP)
        target_link_options(${target} PRIVATE $<$<CONFIG:Release>:LINKER:-S>)
    endif()
endfunction()

# kestrane_precompile_headers(TARGET HEADERS...): parses the headers once for all sources of the target.
# CMAKE_DISABLE_PRECOMPILE_HEADERS turns that off; a source must include what it uses in any case.
function(kestrane_precompile_headers target)
    target_precompile_headers(${target} PRIVATE ${ARGN})
    # Otherwise Clang stores when each header was changed. No two results would be equal, and a compiler cache
    # would never have a hit.
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
        target_compile_options(${target} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
    endif()
endfunction()

# kestrane_use_test_headers(TARGET): compiles a test program, or a library of tests, with the precompiled
# headers of tests/support.
function(kestrane_use_test_headers target)
    target_link_libraries(${target} PRIVATE GTest::gtest)
    target_precompile_headers(${target} REUSE_FROM test_headers)
endfunction()

# kestrane_test(FILE [TARGET VARIABLE] LIBS ...): the GoogleTest program of one test file.
# The name comes from the file: tests/util/split_test.cpp is the target and test "util_split_test".
# VARIABLE receives the target's name.
function(kestrane_test file)
    cmake_parse_arguments(ARG "" "TARGET" "LIBS" ${ARGN})
    file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}/tests" "${CMAKE_CURRENT_SOURCE_DIR}/${file}")
    string(REGEX REPLACE "\\.cpp$" "" name "${name}")
    string(REPLACE "/" "_" name "${name}")
    add_executable(${name} ${file})
    target_link_libraries(${name} PRIVATE kestrane_build ${ARG_LIBS} GTest::gtest_main)
    kestrane_use_test_headers(${name})
    add_test(NAME ${name} COMMAND ${KESTRANE_TEST_LAUNCHER} $<TARGET_FILE:${name}>)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${KESTRANE_TEST_TIMEOUT})
    if(ARG_TARGET)
        set(${ARG_TARGET} ${name} PARENT_SCOPE)
    endif()
endfunction()
