# What the toolchain files of the two architectures share; the oldest system served is macOS 11.0.
#
# On a Mac the system's own compiler is used. Elsewhere it is the Clang of KESTRANE_ZIG, the path of
# a `zig` program, which brings its own linker, system stubs, libc++ and headers.
if(CMAKE_HOST_SYSTEM_NAME STREQUAL "Darwin")
    set(CMAKE_OSX_ARCHITECTURES "${CMAKE_SYSTEM_PROCESSOR}" CACHE STRING "")
    set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0 CACHE STRING "")
    return()
endif()

if(NOT KESTRANE_ZIG)
    message(FATAL_ERROR "Set KESTRANE_ZIG to a zig program, or run scripts/macos/build.sh.")
endif()
set(CMAKE_SYSTEM_NAME Darwin)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTRANE_ZIG)
set(CMAKE_C_COMPILER "${KESTRANE_ZIG}" cc -target ${kestrane_target})
set(CMAKE_CXX_COMPILER "${KESTRANE_ZIG}" c++ -target ${kestrane_target})

# One program is compiler and archiver at once, so the archiver's rule names the part. It writes the
# index itself; an empty CMAKE_RANLIB keeps the build machine's own ranlib away.
set(CMAKE_AR "${KESTRANE_ZIG}" CACHE FILEPATH "")
set(CMAKE_RANLIB "" CACHE FILEPATH "")
foreach(language C CXX)
    set(CMAKE_${language}_ARCHIVE_CREATE "<CMAKE_AR> ar qcs <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_APPEND "<CMAKE_AR> ar qs <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_FINISH "")
endforeach()

# Run path and install name stand in the files from the link on: the program that would change them
# at the installation exists on a Mac only, and a change after the link breaks the signature.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_BUILD_WITH_INSTALL_NAME_DIR ON)

# libc++ becomes a part of every image.
set(KESTRANE_STATIC_LIBCXX ON)

# Nothing of the building machine is taken for the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/macos-rules.cmake")
