// The physical limit of the launcher's design: one thread per helper that forks, executes, waits,
// pauses for 50 ms and starts again. It is not tuned and logs nothing.
//
//     floor_threads PROGRAM COUNT [PROGRAM COUNT]...
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

void Supervise(char* program)
{
    for (;;) {
        const pid_t pid = fork();
        if (pid == 0) {
            char* arguments[] = {program, nullptr};
            execv(program, arguments);
            _exit(127);
        }
        if (pid < 0) {
            std::abort();
        }
        waitpid(pid, nullptr, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        for (int count = std::atoi(argv[i + 1]); count > 0; --count) {
            std::thread(Supervise, argv[i]).detach();
        }
    }
    for (;;) {
        pause();
    }
}
