#include <sys/stat.h>

#include "qv7log/file_state.h"

qv7log::FileState qv7log::GetFileState(int file)
{
    struct stat status;
    if (fstat(file, &status) != 0) {
        return {};
    }
    return {status.st_size, status.st_nlink == 0};
}
