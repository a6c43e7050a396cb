// Tests in a child process whether a call never returns.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

// Whether `act` is still running after 300 ms in a child process, which is then killed. A call that
// would return later also counts, so use it only for an `act` that returns at once if it returns at
// all. An alarm ends the child if the parent cannot.
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
