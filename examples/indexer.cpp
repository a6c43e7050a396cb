// A helper with periodic work: counts the entries of a directory and writes the number to a file,
// at the given interval.
//
//     indexer DIRECTORY RESULT-FILE SECONDS
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>

int main(int argc, char** argv)
{
    if (argc != 4) {
        return 2;
    }
    const std::chrono::seconds pause(std::atoi(argv[3]));
    for (;;) {
        std::error_code error;
        const auto count = std::distance(std::filesystem::directory_iterator(argv[1], error), {});
        std::ofstream(argv[2]) << count << '\n';
        std::this_thread::sleep_for(pause);
    }
}
