// Recognising and converting lists in UTF-16 or UTF-32, which the launcher rejects.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace launchlist {

struct WideEncoding
{
    std::size_t unit = 2;  // In bytes: 2 for UTF-16, 4 for UTF-32.
    bool is_big_endian = false;
    bool has_mark = false;  // A byte order mark. Without one the encoding is only very likely.
};

// The encoding of a file that the launcher rejects; empty if it is neither UTF-16 nor UTF-32. Such
// a file starts with a byte order mark, or with ASCII characters, since a list does: then the first
// four bytes show which.
std::optional<WideEncoding> FindWideEncoding(const std::string& bytes);

// "the file is encoded in UTF-16"
std::string TextOf(const WideEncoding& encoding);

// All of `bytes` in UTF-8, a byte order mark included. Empty if they are not well-formed.
std::optional<std::string> ToUtf8(const std::string& bytes, const WideEncoding& encoding);

}  // namespace launchlist
