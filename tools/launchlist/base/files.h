// Reading whole files.
#pragma once

#include <string>

namespace launchlist {

// Reads all of `path` into `bytes`. On false, `error` says what failed, in the system's words.
bool ReadFile(const std::string& path, std::string& bytes, std::string& error);

// Reads what is left of an open file into `bytes`, as ReadFile does.
bool ReadDescriptor(int descriptor, std::string& bytes, std::string& error);

// Replaces `path` by a file of `bytes`. On false, `error` says what failed.
bool WriteFile(const std::string& path, const std::string& bytes, std::string& error);

}  // namespace launchlist
