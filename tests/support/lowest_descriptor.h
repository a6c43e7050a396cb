// Tells whether code leaves files open.
#pragma once

#include <fcntl.h>
#include <unistd.h>

// The lowest descriptor that is free; the same before and after what closes all it opens.
inline int LowestFreeDescriptor()
{
    const int descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    return descriptor;
}
