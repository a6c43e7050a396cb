// Runs for 50 to 500 ms and ends with a random exit status or signal: "short_life NAME". Once the
// file "enough" exists in its working directory, stays instead until signal 9 ends it.
//
// Reports its start with two arguments: NAME, and the wait status that its end will have.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "tests/helpers/start_report.h"

namespace {

constexpr int kSignals[] = {SIGHUP, SIGINT, SIGABRT, SIGUSR1, SIGSEGV, SIGTERM};

void Report(char* program, char* name, int wait_status)
{
    std::string status = std::to_string(wait_status);
    char* arguments[] = {program, name, status.data()};
    ReportStart(3, arguments);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        return 2;
    }
    if (access("enough", F_OK) == 0) {
        Report(argv[0], argv[1], SIGKILL);
        for (;;) {
            pause();
        }
    }
    std::minstd_rand random(
        static_cast<unsigned>(getpid()) +
        static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count()));
    const auto number_up_to = [&random](int last) {
        return std::uniform_int_distribution<int>(0, last)(random);
    };
    const std::chrono::milliseconds life(50 + number_up_to(450));
    const bool by_signal = number_up_to(1) == 0;
    const int code = by_signal ? kSignals[number_up_to(static_cast<int>(std::size(kSignals)) - 1)]
                               : number_up_to(255);
    Report(argv[0], argv[1], by_signal ? code : code * 256);
    std::this_thread::sleep_for(life);
    if (by_signal) {
        raise(code);
    }
    return code;
}
