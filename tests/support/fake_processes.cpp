#include "tests/support/fake_processes.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

FakeProcesses& FakeProcesses::Instance()
{
    // Never destroyed: supervisors may still run when the program ends.
    static FakeProcesses* const instance = new FakeProcesses;
    return *instance;
}

void FakeProcesses::Reset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_scripted.clear();
    m_next_pid = 1001;
    m_wait_statuses.clear();
    m_failing_waits.clear();
    m_all_ended = false;
    m_kills.clear();
    m_execs.clear();
    m_forks.clear();
    m_kill_hook = nullptr;
}

void FakeProcesses::ScriptForks(std::deque<pid_t> results)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_scripted = std::move(results);
}

void FakeProcesses::End(pid_t pid, int wait_status)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_wait_statuses.emplace(pid, wait_status);
    m_ended.notify_all();
}

void FakeProcesses::EndAll()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_all_ended = true;
    m_ended.notify_all();
}

void FakeProcesses::FailWait(pid_t pid)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failing_waits.insert(pid);
}

void FakeProcesses::SetKillHook(std::function<void(pid_t)> hook)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_kill_hook = std::move(hook);
}

std::vector<std::pair<pid_t, int>> FakeProcesses::kills()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_kills;
}

std::vector<FakeProcesses::Exec> FakeProcesses::execs()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_execs;
}

std::vector<std::chrono::steady_clock::time_point> FakeProcesses::forks()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_forks;
}

int FakeProcesses::awaited()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_awaited;
}

pid_t FakeProcesses::Fork()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_forks.push_back(std::chrono::steady_clock::now());
    if (m_scripted.empty()) {
        return m_next_pid++;
    }
    const pid_t result = m_scripted.front();
    m_scripted.pop_front();
    return result;
}

int FakeProcesses::Execv(const char* path, char* const arguments[])
{
    Exec exec{path, {}};
    for (int i = 0; arguments[i] != nullptr; ++i) {
        exec.arguments.emplace_back(arguments[i]);
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_execs.push_back(std::move(exec));
    errno = ENOENT;
    return -1;
}

pid_t FakeProcesses::Waitpid(pid_t pid, int* wait_status, int options)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (options != 0) {
        errno = EINVAL;
        return -1;
    }
    if (m_failing_waits.count(pid) != 0) {
        errno = ECHILD;
        return -1;
    }
    ++m_awaited;
    m_ended.wait(lock, [&] { return m_all_ended || m_wait_statuses.count(pid) != 0; });
    --m_awaited;
    const auto found = m_wait_statuses.find(pid);
    *wait_status = found != m_wait_statuses.end() ? found->second : 0;
    return pid;
}

int FakeProcesses::Kill(pid_t pid, int signal)
{
    std::function<void(pid_t)> hook;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_kills.emplace_back(pid, signal);
        hook = m_kill_hook;
    }
    if (hook) {
        hook(pid);
    }
    if (signal == SIGKILL && pid > 0) {
        End(pid, SIGKILL);
    }
    return 0;
}

extern "C" pid_t fork()
{
    return FakeProcesses::Instance().Fork();
}

extern "C" int execv(const char* path, char* const arguments[])
{
    return FakeProcesses::Instance().Execv(path, arguments);
}

extern "C" pid_t waitpid(pid_t pid, int* wait_status, int options)
{
    return FakeProcesses::Instance().Waitpid(pid, wait_status, options);
}

extern "C" int kill(pid_t pid, int signal)
{
    return FakeProcesses::Instance().Kill(pid, signal);
}
