#include <fcntl.h>

#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

constexpr int kLaunchers = 2;
constexpr int kThreads = 4;

// Does to its standard input, the log, what a program may do without writing or truncating.
void RunProgram()
{
    for (int i = 0; i < 20; ++i) {
        fcntl(0, F_SETFL, O_NONBLOCK);  // without O_APPEND
        lseek(0, 0, SEEK_SET);
    }
}

// Starts `programs` programs, one after the other, while threads log. Stores how many records each
// thread has logged.
void RunLauncher(const std::string& path, int first_writer, int programs, std::atomic<int>* written)
{
    close(0);
    ILog* const log = StartLog(path);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (!stop) {
                LogNumber(log, first_writer + i, written[i]++);
                std::this_thread::sleep_for(microseconds(50));
            }
        });
    }
    for (int i = 0; i < programs; ++i) {
        const pid_t program = Fork(RunProgram);
        int status = 0;
        WaitFor(program, status);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

struct Counts
{
    std::atomic<int> written[kLaunchers * kThreads] = {};
};

}  // namespace

std::string InheritedDescriptorDisturbed(const std::string& directory, int programs)
{
    const std::string path = directory + "/log";
    auto* const counts = Shared<Counts>();
    Archive archive(path, directory + "/archive");
    std::vector<pid_t> launchers;
    for (int i = 0; i < kLaunchers; ++i) {
        launchers.push_back(Fork(
            [&] { RunLauncher(path, i * kThreads, programs, counts->written + i * kThreads); }));
    }
    if (!WaitForAll(launchers, seconds(300))) {
        return "a launcher hung or crashed\n";
    }
    std::map<int, int> written;
    for (int i = 0; i < kLaunchers * kThreads; ++i) {
        written[i] = counts->written[i];
    }
    const Content content = archive.Finish();
    return CheckWhole(content) + CheckNumbers(content, written);
}
