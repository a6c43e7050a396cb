// Where the running program's executable lies.
#pragma once

#include <cstdint>

// Writes the absolute path of the executable with its NUL into `buffer`. Returns false, leaving
// `buffer` as it is, when the path is unknown or needs more than `size` bytes.
// Linux gives the path with symbolic links resolved, macOS as the program was started.
bool GetExecutablePath(char* buffer, std::uint32_t size);
