// What has to be known of the log after every record.
#pragma once

#include <cstdint>

namespace qv7log {

struct FileState
{
    std::int64_t size = 0;
    bool is_removed = false;  // no folder has it any more
};

// The state of the open file `file`; an empty file's that exists where that cannot be had.
FileState GetFileState(int file);

}  // namespace qv7log
