// A long-running helper: does nothing until a signal ends it.
//
//     sync_agent [ARGUMENT...]
#include <unistd.h>

int main()
{
    for (;;) {
        pause();
    }
}
