// Turning the bytes of a file into the text of a log.
#pragma once

#include <string>

namespace launchlist {

// Decompresses gzip, removes the CR of line ends in CRLF, and rejects UTF-16. On false, `error`
// says why `bytes` cannot be used.
bool PrepareLog(std::string& bytes, std::string& error);

}  // namespace launchlist
