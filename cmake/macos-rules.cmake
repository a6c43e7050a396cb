# The linker option for a run path, which CMake sets by itself only on a Mac. It cannot be set in the
# toolchain file, because CMake clears the variable after reading that file.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
