// A badly behaved helper: "misbehave HOW".
//
//     ignore       leaves the session and ignores every signal that can be ignored, then stays
//     close        closes every descriptor, then stays
//     detach       forks a process that leaves the session and stays; ends itself
//     leave        forks a process that leaves the session and stays; also stays itself
//     fill BYTES   writes this many bytes to its standard input, then stays
//
// Reports a start once this is done; of two processes, the one that left the session reports it.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tests/helpers/start_report.h"

namespace {

void IgnoreSignals()
{
    setsid();
    for (int number = 1; number < 32; ++number) {
        signal(number, SIG_IGN);
    }
}

void CloseDescriptors()
{
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        close(descriptor);
    }
}

// Forks; returns only in the child, which has left the session.
void Detach(bool stay)
{
    const pid_t child = fork();
    if (child != 0) {
        // NOLINTNEXTLINE(bugprone-infinite-loop): a signal ends it.
        while (stay && child > 0) {
            pause();
        }
        std::_Exit(child > 0 ? 0 : 1);
    }
    setsid();
}

bool Fill(std::size_t size)
{
    const std::string text(64 * 1024, 'x');
    while (size > 0) {
        const ssize_t written = write(STDIN_FILENO, text.data(), std::min(size, text.size()));
        if (written <= 0) {
            return false;
        }
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "";
    if (how == "ignore") {
        IgnoreSignals();
    } else if (how == "close") {
        CloseDescriptors();
    } else if (how == "detach" || how == "leave") {
        Detach(how == "leave");
    } else if (how != "fill" || argc != 3 || !Fill(std::strtoul(argv[2], nullptr, 10))) {
        return 2;
    }
    ReportStart(argc, argv);
    for (;;) {
        pause();
    }
}
