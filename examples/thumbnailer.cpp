// A helper with a fault: it works for so many seconds, then it crashes.
//
//     thumbnailer SECONDS
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    // Of a crash on purpose nobody needs a core file.
    const rlimit none = {};
    setrlimit(RLIMIT_CORE, &none);

    std::this_thread::sleep_for(std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 3));
    std::abort();
}
