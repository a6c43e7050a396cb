#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

std::string SameLogTwice(const std::string& directory, int records)
{
    constexpr int kProcesses = 3;
    constexpr int kThreads = 4;
    const std::string path = directory + "/log";
    Archive archive(path, directory + "/archive");
    std::vector<pid_t> processes;
    std::map<int, int> written;
    for (int process = 0; process < kProcesses; ++process) {
        processes.push_back(Fork([&] {
            // The second path is another spelling of the first one.
            ILog* const logs[] = {StartLog(path), StartLog(directory + "//log")};
            std::vector<std::thread> threads;
            for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([&, i] {
                    for (int number = 0; number < records; ++number) {
                        LogNumber(logs[number % 2], process * kThreads + i, number);
                    }
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
        }));
        for (int i = 0; i < kThreads; ++i) {
            written[process * kThreads + i] = records;
        }
    }
    if (!WaitForAll(processes, seconds(300))) {
        return "a process hung or crashed\n";
    }
    const Content content = archive.Finish();
    return CheckWhole(content) + CheckNumbers(content, written);
}

namespace {

ILog* g_log = nullptr;

void LogInChild()
{
    if (g_log != nullptr) {
        Log(g_log, LOGLEVEL_ERROR, "%d", static_cast<int>(getpid()));
    }
}

}  // namespace

std::string ForkHandlersRegisteredEarlier(const std::string& directory, int forks)
{
    const std::string path = directory + "/log";
    std::vector<pid_t> process = {Fork([&] {
        pthread_atfork(nullptr, nullptr, LogInChild);
        g_log = StartLog(path);
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([forks] {
                for (int fork = 0; fork < forks; ++fork) {
                    std::vector<pid_t> child = {Fork([] {})};
                    WaitForAll(child);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    })};
    // In a new process: an earlier proof may have registered the library's handlers in this one.
    if (!WaitForAll(process, seconds(300))) {
        return "the process hung or crashed\n";
    }
    const Content content = ReadLog(path);
    for (const qv7log::Record& record : content.records) {
        if (record.text != std::to_string(record.process)) {
            return "process " + record.text + " logged as " + std::to_string(record.process) + "\n";
        }
    }
    return content.records.empty() ? "nothing was logged\n" : "";
}

#ifdef __linux__
namespace {

// Runs `body` in a child that is process 1 of a new PID namespace. Returns its exit status.
template <typename Body>
int RunInPidNamespace(Body body)
{
    if (unshare(CLONE_NEWPID) != 0) {
        return -1;
    }
    const pid_t child = Fork([&] { _exit(body()); });
    int status = 0;
    return WaitFor(child, status, Clock::now() + seconds(20)) ? WEXITSTATUS(status) : 1;
}

// Rotates a log in a thread, and forks a child that must be able to rotate and to reopen it.
int RunParent(const std::string& path, unsigned delay)
{
    ILog* const log = StartLog(path);
    const std::string text(static_cast<std::size_t>(qv7log::kRotateSize), '.');
    std::atomic<bool> stop{false};
    std::thread rotating([&] {
        while (!stop) {
            Log(log, LOGLEVEL_ERROR, "%s", text.c_str());
        }
    });
    std::this_thread::sleep_for(microseconds(delay));
    const int status = RunInPidNamespace([&] {
        unlink(path.c_str());
        Log(log, LOGLEVEL_ERROR, "again");
        return getpid() == 1 ? 0 : 1;
    });
    stop = true;
    rotating.join();
    const std::vector<std::string> texts = Texts(path);
    const bool found = std::find(texts.begin(), texts.end(), "again") != texts.end();
    return status == 0 && !found ? 1 : status;
}

}  // namespace
#endif

std::string ChildrenInPidNamespaces(const std::string& directory, int children)
{
#ifdef __linux__
    for (int i = 0; i < children; ++i) {
        const std::string path = directory + "/" + std::to_string(i) + "/log";
        const pid_t process = Fork([&] {
            _exit(RunInPidNamespace(
                [&] { return RunParent(path, 500 + static_cast<unsigned>(i) % 100); }));
        });
        int status = 0;
        if (!WaitFor(process, status)) {
            return "child " + std::to_string(i) + " hung\n";
        }
        if (WEXITSTATUS(status) == 255) {
            std::puts("  skipped: PID namespaces are not permitted");
            return "";
        }
        if (status != 0) {
            return "child " + std::to_string(i) + " did not reopen the log\n";
        }
    }
#endif
    static_cast<void>(directory);
    static_cast<void>(children);
    return "";
}
