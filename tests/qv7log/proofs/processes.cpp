#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

constexpr seconds kLimit{300};  // every process logs as many records as the caller asked for

}  // namespace

std::string ProcessesRotating(const std::string& directory, int records)
{
    constexpr int kProcesses = 8;
    constexpr int kThreads = 4;
    const std::string path = directory + "/log";
    if (StartLog(path) == nullptr) {
        return "no log";
    }
    Archive archive(path, directory + "/archive");
    std::vector<pid_t> processes;
    std::map<int, int> written;
    for (int process = 0; process < kProcesses; ++process) {
        processes.push_back(Fork([&] {
            ILog* const log = StartLog(path);
            std::vector<std::thread> threads;
            for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([=] {
                    for (int number = 0; number < records; ++number) {
                        LogNumber(log, process * kThreads + i, number);
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
    if (!WaitForAll(processes, kLimit)) {
        return "a process hung or crashed\n";
    }
    const std::string wrong = archive.WaitForFiles(1);
    const Content content = archive.Finish();
    return wrong + CheckWhole(content) + CheckNumbers(content, written);
}
