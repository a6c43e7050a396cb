// Turning the bytes of a file into the text of a log.
#pragma once

#include <cstddef>
#include <string>

namespace launchlist {

// Far more than any log. Needed because a small file may decompress to any size.
constexpr std::size_t kMaxDecompressed = std::size_t{1} << 30U;

// Decompresses gzip, removes the CR of line ends in CRLF, and rejects UTF-16. On false, `error`
// says why `bytes` cannot be used. A log that is compressed may have at most `max_decompressed`
// bytes, in either form.
bool PrepareLog(std::string& bytes, std::string& error,
                std::size_t max_decompressed = kMaxDecompressed);

}  // namespace launchlist
