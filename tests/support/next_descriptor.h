// For checks that code closes every descriptor that it opens.
#pragma once

#include <fcntl.h>
#include <unistd.h>

// The number of the next descriptor to be opened. It is the same before and after code that closes
// every descriptor that it opens.
inline int NextDescriptor()
{
    const int descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    return descriptor;
}
