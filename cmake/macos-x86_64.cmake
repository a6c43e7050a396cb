# Toolchain file: macOS on Intel.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(kestrane_target x86_64-macos.11.0)
include("${CMAKE_CURRENT_LIST_DIR}/macos-toolchain.cmake")
