#include <signal.h>
#include <sys/resource.h>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

constexpr int kProcesses = 8;

void SetSizeLimit(rlim_t size)
{
    struct rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = size;
    setrlimit(RLIMIT_FSIZE, &limit);
}

// Logs `records` records up to and beyond the limit, and one more without a limit.
void RunWriter(const std::string& path, int writer, int records)
{
    SetSizeLimit(static_cast<rlim_t>(qv7log::kRotateSize / 2));
    ILog* const log = StartLog(path);
    for (int number = 0; number < records; ++number) {
        LogNumber(log, writer, number);
    }
    SetSizeLimit(RLIM_INFINITY);
    std::this_thread::sleep_for(milliseconds(2));  // the limit is read once per millisecond
    LogNumber(log, writer, records);
}

}  // namespace

std::string SizeLimitReached(const std::string& directory, int rounds)
{
    constexpr int kRecords = 100;
    for (int round = 0; round < rounds; ++round) {
        const std::string path = directory + "/log" + std::to_string(round);
        std::vector<pid_t> processes;
        std::map<int, int> written;
        for (int writer = 0; writer < kProcesses; ++writer) {
            processes.push_back(Fork([&] { RunWriter(path, writer, kRecords); }));
            written[writer] = kRecords + 1;
        }
        if (!WaitForAll(processes)) {
            return "a process was killed in round " + std::to_string(round) + "\n";
        }
        const Content content = ReadLog(path);
        if (content.records.size() >= kProcesses * (kRecords + 1)) {
            return "the limit was never reached\n";
        }
        LogNumber(StartLog(path), kLastWriter, 0);
        std::string wrong = CheckKeptOrCounted(ReadLog(path), written);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    return "";
}
