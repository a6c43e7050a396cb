#include <fcntl.h>
#include <sys/stat.h>

#include "qv7log/file_state.h"

// Not fstat: since it asks for the times too, the next write must store a finer one, and a record
// then costs twice as much (docs/benchmarks.md).
qv7log::FileState qv7log::GetFileState(int file)
{
    struct statx status;
    if (statx(file, "", AT_EMPTY_PATH, STATX_NLINK | STATX_SIZE, &status) != 0) {
        return {};
    }
    return {static_cast<std::int64_t>(status.stx_size), status.stx_nlink == 0};
}
