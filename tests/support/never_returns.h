// Whether a call does not end, found out in a child process.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

// Whether `act` is still running after 300 ms in a child process, which is killed then. A call that
// would return later counts as one that does not; `act` should be one that returns at once if it
// returns. An alarm ends the child if the parent cannot.
template <typename Act>
bool NeverReturns(Act act)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(5);
        act();
        _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const bool is_running = child > 0 && waitpid(child, nullptr, WNOHANG) == 0;
    if (is_running) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return is_running;
}
