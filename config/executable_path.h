// The path of the running program's executable.
#pragma once

#include <cstdint>

// Writes the absolute path of the executable with its NUL into `buffer`. Returns false, and leaves
// `buffer` unchanged, if the path is unknown or needs more than `size` bytes.
// Linux resolves symbolic links in the path; macOS gives the path that the program was started by.
bool GetExecutablePath(char* buffer, std::uint32_t size);
