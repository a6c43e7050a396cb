// A faulty helper: crashes after the given number of seconds.
//
//     thumbnailer SECONDS
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    // A deliberate crash should leave no core file.
    const rlimit none = {};
    setrlimit(RLIMIT_CORE, &none);

    std::this_thread::sleep_for(std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 3));
    std::abort();
}
