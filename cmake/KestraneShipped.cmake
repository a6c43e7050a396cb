# Compile and link options that decide what a shipped program contains; for our own code, and for the
# libraries that are linked into it (CMAKE_PROJECT_INCLUDE in scripts/lib/libraries.sh).
include_guard()

# No path of the building machine: assertions and debug information name sources below /kestrane, and
# the cross compiler's headers below /zig. Of several prefixes that match, the compilers use the last.
# A report on coverage needs the paths.
get_filename_component(kestrane_root "${CMAKE_CURRENT_LIST_DIR}" DIRECTORY)
if(NOT KESTRANE_COVERAGE)
    add_compile_options("-ffile-prefix-map=${kestrane_root}=/kestrane")
endif()
if(KESTRANE_ZIG)
    get_filename_component(kestrane_zig_directory "${KESTRANE_ZIG}" DIRECTORY)
    # The debug information names the same directory for every build.
    add_compile_options(-g -ffile-compilation-dir=/kestrane
        "-ffile-prefix-map=${kestrane_zig_directory}=/zig")
endif()

# Checks at run time: the program is aborted when it writes beyond an array on the stack or beyond an
# object whose size the compiler knows, and the stack cannot grow past its guard page unnoticed.
# _FORTIFY_SOURCE works only with optimisation. OFF is for measuring what the checks cost.
option(KESTRANE_HARDEN "Build the Linux programs and libraries with run-time checks" ON)
if(KESTRANE_HARDEN AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_compile_options(-fstack-protector-strong -fstack-clash-protection
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()
