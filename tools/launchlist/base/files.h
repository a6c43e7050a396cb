// Reading and writing whole files.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace launchlist {

// Reads the file at `path` into `bytes`. On failure, `error` receives the system's message.
bool ReadFile(const std::string& path, std::string& bytes, std::string& error);

// Reads the rest of an open file into `bytes`, as ReadFile does.
bool ReadDescriptor(int descriptor, std::string& bytes, std::string& error);

// Who owns a file and who may do what with it.
struct FileAccess
{
    mode_t mode = 0600;
    std::optional<std::pair<uid_t, gid_t>> owner;  // Empty: this process.
};

// Atomically replaces the file at `path` by one that contains `bytes`, or creates it. A symbolic
// link is itself replaced. If this process may not give the file to another owner, it keeps the
// group, or else neither. On failure, `path` is unchanged, nothing is left over, and `error`
// receives the system's message.
bool ReplaceFile(const std::string& path, std::string_view bytes, const FileAccess& access,
                 std::string& error);

// Atomically replaces the contents of the existing file at `path`: `before`, which it must still
// have, by `after`. Keeps the mode and, where this process may, the owner. The file that a symbolic
// link points to is replaced, and the link stays. On failure, nothing is changed, and `error` says
// why.
bool ReplaceContents(const std::string& path, const std::string& before, std::string_view after,
                     std::string& error);

}  // namespace launchlist
