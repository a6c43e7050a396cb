// Shared by the proofs: processes, writers of numbered records, and checks that all of these
// records are there.
#pragma once

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/qv7log/read_log.h"

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// A process that has not ended by then counts as hung.
constexpr seconds kHang{30};

// Allocates a value that forked processes share.
template <typename Value>
Value* Shared()
{
    void* const memory =
        mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Value();
}

// Runs `body` in a forked child and returns the child's id. Throws on failure: a caller that killed
// the process id -1 would signal every process.
template <typename Body>
pid_t Fork(Body body)
{
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

// Waits until `child` has ended. Kills it and returns false if it is still running at the deadline.
bool WaitFor(pid_t child, int& status, Clock::time_point deadline = Clock::now() + kHang);

// Waits until all `children` have ended and empties the list. Returns whether all of them exited
// with status 0 in time; those that did not end in time are killed.
bool WaitForAll(std::vector<pid_t>& children, seconds limit = kHang);

// Moves the old files of a log to another directory, in their order, so that none is deleted. Runs
// in its own process, because the rotation lock belongs to a process.
class Archive
{
public:
    Archive(std::string log, std::string directory);
    ~Archive();

    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    // Waits until at least `files` old files have been moved. Returns an error message, or "".
    std::string WaitForFiles(int files) const;

    // Moves the remaining files and returns everything that was ever logged.
    Content Finish();

private:
    struct State
    {
        std::atomic<bool> stop{false};
        std::atomic<int> moved{0};
    };

    void Run();
    void MoveOldFiles();

    const std::string m_log;
    const std::string m_directory;
    State* const m_shared;
    pid_t m_process = 0;
};

// Logs the record with the number `number` of the writer `writer`.
void LogNumber(ILog* log, int writer, int number);

// Parses the text of a record that LogNumber has written.
bool ReadNumber(const qv7log::Record& record, int& writer, int& number);

// Checks that the records of each writer are there once and in order, from 0 up to but excluding
// `written[writer]`. Up to `more` further records are accepted: a killed writer may have completed
// a record without counting it.
std::string CheckNumbers(const Content& content, const std::map<int, int>& written, int more = 0);

// Checks that every record is there once and in the order of its writer, or is counted as lost.
// After the records of `written`, the log must contain one record of kLastWriter, before which all
// losses have been reported.
std::string CheckKeptOrCounted(const Content& content, const std::map<int, int>& written);
constexpr int kLastWriter = 500;

// Checks that `content` consists of records only.
std::string CheckWhole(const Content& content);

// Threads that log numbers until they are stopped. The writer of a record is the thread's index.
class Writers
{
public:
    Writers(ILog* log, int threads, microseconds pause);

    // Stops the threads and returns how many records each of them has logged.
    std::map<int, int> Finish();

private:
    std::atomic<bool> m_stop{false};
    std::vector<int> m_written;
    std::vector<std::thread> m_threads;
};
