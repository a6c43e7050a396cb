#include <mach-o/dyld.h>

#include "config/executable_path.h"

bool GetExecutablePath(char* buffer, std::uint32_t size)
{
    return _NSGetExecutablePath(buffer, &size) == 0;
}
