// Processes as the code under test sees them: nothing is started, nothing is signalled.
// The source defines fork, execv, waitpid and kill for the test program. The real kill is out of
// reach: code under test signals process groups and every process by design.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

class FakeProcesses
{
public:
    struct Exec
    {
        std::string path;
        std::vector<std::string> arguments;
    };

    static FakeProcesses& Instance();

    // Forgets everything; the next child gets process id 1001.
    void Reset();

    // What the next calls of fork return: 0 makes the supervisor take the child's way, -1 fails.
    // Without any left, fork gives new process ids.
    void ScriptForks(std::deque<pid_t> results);

    // Ends child `pid`: waitpid for it returns with `wait_status`. Signal 9 does the same with 9.
    void End(pid_t pid, int wait_status);

    // Ends every child there is and, at once, every child to come, so that nobody waits for ever.
    void EndAll();

    // waitpid for `pid` fails, as it does for a process that is no child. It always fails with
    // options: with one of them it would not wait for an end.
    void FailWait(pid_t pid);

    // Called with the target of every kill, before it takes effect. Set before anything runs.
    void SetKillHook(std::function<void(pid_t)> hook);

    std::vector<std::pair<pid_t, int>> kills();
    std::vector<Exec> execs();
    std::vector<std::chrono::steady_clock::time_point> forks();

    // How many supervisors are in waitpid. A fork that has been counted above does not show that
    // its supervisor knows the process id already; this does.
    int awaited();

    // The replaced functions' work.
    pid_t Fork();
    int Execv(const char* path, char* const arguments[]);
    pid_t Waitpid(pid_t pid, int* wait_status, int options);
    int Kill(pid_t pid, int signal);

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::deque<pid_t> m_scripted;
    pid_t m_next_pid = 1001;
    std::map<pid_t, int> m_wait_statuses;
    std::set<pid_t> m_failing_waits;
    bool m_all_ended = false;
    int m_awaited = 0;
    std::vector<std::pair<pid_t, int>> m_kills;
    std::vector<Exec> m_execs;
    std::vector<std::chrono::steady_clock::time_point> m_forks;
    std::function<void(pid_t)> m_kill_hook;
};
