// Processes as the code under test sees them. Nothing is started or signalled: the source defines
// fork, execv, waitpid and kill for the test program, because the code under test signals process
// groups and all processes by design.
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

    // The results of the next calls of fork: 0 makes the supervisor behave as the child, -1 is a
    // failure. After these, fork returns new process ids.
    void ScriptForks(std::deque<pid_t> results);

    // Ends child `pid`: waitpid for it returns with `wait_status`. Signal 9 ends a child with 9.
    void End(pid_t pid, int wait_status);

    // Ends all children, and every later child at once, so that no supervisor waits forever.
    void EndAll();

    // Makes waitpid for `pid` fail, as it does for a process that is not a child. With options, it
    // always fails, since some of them make it return before the child's end.
    void FailWait(pid_t pid);

    // `hook` is called with the target of every kill, before it takes effect. Must be set before
    // any supervisor runs.
    void SetKillHook(std::function<void(pid_t)> hook);

    std::vector<std::pair<pid_t, int>> kills();
    std::vector<Exec> execs();
    std::vector<std::chrono::steady_clock::time_point> forks();

    // The number of supervisors in waitpid. Unlike a counted fork, this shows that a supervisor has
    // stored the process id.
    int awaited();

    // The replacements for the system functions.
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
