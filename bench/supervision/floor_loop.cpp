// The physical limit of starting helpers: one thread that forks, executes and waits in a loop.
//
//     floor_loop PROGRAM COUNT [PROGRAM COUNT]...
//
// Starts each PROGRAM COUNT times and restarts it 50 ms after it ends. Since the pause blocks all
// programs, this is a limit for a single restarting helper only.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

namespace {

std::map<pid_t, char*> g_running;

void Start(char* program)
{
    const pid_t pid = fork();
    if (pid == 0) {
        char* arguments[] = {program, nullptr};
        execv(program, arguments);
        _exit(127);
    }
    if (pid < 0) {
        std::abort();
    }
    g_running[pid] = program;
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        for (int count = std::atoi(argv[i + 1]); count > 0; --count) {
            Start(argv[i]);
        }
    }
    for (;;) {
        const auto ended = g_running.find(wait(nullptr));
        if (ended == g_running.end()) {
            return 1;
        }
        char* program = ended->second;
        g_running.erase(ended);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        Start(program);
    }
}
