# Toolchain file: macOS on Apple silicon.
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(kestrane_target aarch64-macos.11.0)
include("${CMAKE_CURRENT_LIST_DIR}/macos-toolchain.cmake")
