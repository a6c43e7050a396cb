# The linker option for a run path, which CMake sets by itself only on a Mac. Not in the toolchain
# file, because CMake clears the variable after reading that.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
