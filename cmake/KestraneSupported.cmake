# The oldest versions that the project supports. kestrane_require_supported() stops the configuration
# with a clear message for anything older.
include_guard()

set(KESTRANE_OLDEST_GNU 12)
set(KESTRANE_OLDEST_Clang 14)
set(KESTRANE_OLDEST_AppleClang 14)
set(KESTRANE_OLDEST_jsoncpp 1.8.4)

# kestrane_require(WHAT VERSION OLDEST): fails if VERSION is older than OLDEST.
function(kestrane_require what version oldest)
    if(version VERSION_LESS oldest)
        message(FATAL_ERROR "${what} ${version} is too old: this project needs ${what} ${oldest} or"
            " newer. Install a newer version and configure in an empty build directory.")
    endif()
endfunction()

# Compiler versions are checked for the compilers that the project is tested with; any other compiler
# is accepted with a warning.
function(kestrane_require_compiler id version)
    if(DEFINED KESTRANE_OLDEST_${id})
        set(name "${id}")
        if(id STREQUAL "GNU")
            set(name "GCC")
        endif()
        kestrane_require("${name}" "${version}" "${KESTRANE_OLDEST_${id}}")
    else()
        message(WARNING "The compiler ${id} ${version} is not one that this project is tested with:"
            " GCC ${KESTRANE_OLDEST_GNU}, Clang ${KESTRANE_OLDEST_Clang} or newer.")
    endif()
endfunction()

function(kestrane_require_supported)
    kestrane_require_compiler("${CMAKE_CXX_COMPILER_ID}" "${CMAKE_CXX_COMPILER_VERSION}")
    kestrane_require(jsoncpp "${jsoncpp_VERSION}" "${KESTRANE_OLDEST_jsoncpp}")
endfunction()
