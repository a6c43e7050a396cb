#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <random>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

constexpr int kKilledThreads = 4;

struct Progress
{
    std::atomic<int> completed[kKilledThreads + 1] = {};  // the last is the forked child's
    std::atomic<bool> stop{false};
};

// Logs numbers as `writer` and counts the completed records.
void LogAndCount(ILog* log, int writer, std::atomic<int>& completed, const std::atomic<bool>& stop)
{
    while (!stop) {
        LogNumber(log, writer, completed);
        ++completed;
    }
}

// The process that is killed. Its forked child continues to log until `progress.stop`.
void RunUntilKilled(const std::string& path, int first_writer, Progress& progress)
{
    ILog* const log = StartLog(path);
    std::vector<std::thread> threads;
    for (int i = 0; i < kKilledThreads; ++i) {
        threads.emplace_back(
            [&, i] { LogAndCount(log, first_writer + i, progress.completed[i], progress.stop); });
    }
    std::this_thread::sleep_for(milliseconds(1));
    Fork([&] {
        LogAndCount(log, first_writer + kKilledThreads, progress.completed[kKilledThreads],
                    progress.stop);
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

std::string KilledWhileRotating(const std::string& directory, int rounds)
{
    constexpr int kWitness = 1;
    const std::string path = directory + "/log";
    if (StartLog(path) == nullptr) {
        return "no log";
    }
    Archive archive(path, directory + "/archive");
    auto* const witness = Shared<Progress>();
    const pid_t witness_process = Fork([&] {
        ILog* const log = StartLog(path);
        while (!witness->stop) {
            LogNumber(log, kWitness, witness->completed[0]++);
            std::this_thread::sleep_for(microseconds(100));
        }
    });
    std::mt19937 random(3);
    std::map<int, int> written;
    std::string wrong;
    for (int round = 0; round < rounds; ++round) {
        auto* const progress = Shared<Progress>();
        int alive[2];
        if (pipe(alive) != 0) {
            return "no pipe";
        }
        const int first_writer = 10 + round * (kKilledThreads + 1);
        const pid_t process = Fork([&] {
            close(alive[0]);
            RunUntilKilled(path, first_writer, *progress);
        });
        close(alive[1]);
        std::this_thread::sleep_for(microseconds(3000 + random() % 20000));
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);

        // The child of the killed process continues to log, but the log must stay small, because
        // the witness rotates it.
        const int before = witness->completed[0];
        const Clock::time_point deadline = Clock::now() + kHang;
        struct stat status = {};
        do {
            std::this_thread::sleep_for(milliseconds(1));
            stat(path.c_str(), &status);
        } while (
            (witness->completed[0] < before + 10 || status.st_size > 2 * qv7log::kRotateSize) &&
            Clock::now() < deadline);
        if (Clock::now() >= deadline) {
            wrong = "nobody rotates after round " + std::to_string(round) + "\n";
        }
        progress->stop = true;
        char byte;
        while (read(alive[0], &byte, 1) < 0 && errno == EINTR) {
        }
        close(alive[0]);
        for (int i = 0; i <= kKilledThreads; ++i) {
            written[first_writer + i] = progress->completed[i];
        }
        munmap(progress, sizeof *progress);
        if (!wrong.empty()) {
            break;
        }
    }
    witness->stop = true;
    int status = 0;
    if (!WaitFor(witness_process, status)) {
        wrong += "the witness hung\n";
    }
    written[kWitness] = witness->completed[0];
    return wrong + CheckNumbers(archive.Finish(), written, 1);
}
