// Reading and writing whole files.
#pragma once

#include <string>

namespace launchlist {

// Reads the file at `path` into `bytes`. On failure, `error` receives the system's message.
bool ReadFile(const std::string& path, std::string& bytes, std::string& error);

// Reads the rest of an open file into `bytes`, as ReadFile does.
bool ReadDescriptor(int descriptor, std::string& bytes, std::string& error);

// Replaces the file at `path` with one that contains `bytes`. On failure, `error` receives the
// system's message.
bool WriteFile(const std::string& path, const std::string& bytes, std::string& error);

}  // namespace launchlist
