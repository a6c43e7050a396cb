# Shared by the toolchain files of the two architectures. The oldest supported system is macOS 11.0.
#
# On a Mac this uses the system's own compiler. Elsewhere it uses the Clang in KESTRANE_ZIG, the path
# of a `zig` program, which has its own linker, system stubs, libc++ and headers.
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

# zig is both compiler and archiver, so the archive rules contain the subcommand "ar". The archiver
# writes the index itself; the empty CMAKE_RANLIB keeps CMake from running the build machine's ranlib.
set(CMAKE_AR "${KESTRANE_ZIG}" CACHE FILEPATH "")
set(CMAKE_RANLIB "" CACHE FILEPATH "")
foreach(language C CXX)
    set(CMAKE_${language}_ARCHIVE_CREATE "<CMAKE_AR> ar qcs <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_APPEND "<CMAKE_AR> ar qs <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_${language}_ARCHIVE_FINISH "")
endforeach()

# Sets the run path and the install name at link time. The program that changes them at installation exists
# only on a Mac, and any change after the link breaks the signature.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_BUILD_WITH_INSTALL_NAME_DIR ON)

# Links libc++ statically into every image.
set(KESTRANE_STATIC_LIBCXX ON)

# In the build machine's directories, CMake searches only for programs.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/macos-rules.cmake")
