// Tells whether code leaves files open.
#pragma once

#include <fcntl.h>
#include <unistd.h>

// The number that the next descriptor would get; the same before and after what closes all it
// opens.
inline int NextDescriptor()
{
    const int descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    return descriptor;
}
