# The linker's word for a run path, which CMake knows by itself only when it runs on a Mac. It clears
# the variable after the toolchain file; this file is read later.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
