#include <sys/stat.h>

#include <cstdio>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

std::string OldFileUnmovable(const std::string& directory, int records)
{
    constexpr uid_t kUser = 65534;
    constexpr int kThreads = 4;
    if (getuid() != 0) {
        std::puts("  skipped: only root can create another user's file");
        return "";
    }
    // In a directory with the sticky bit, a user cannot rename the file of another user.
    chmod(directory.c_str(), 01777);
    const std::string path = directory + "/log";
    WriteFile(path + ".1", "the user's\n");
    WriteFile(path + ".2", "root's\n");
    if (chown((path + ".1").c_str(), kUser, kUser) != 0) {
        return "chown failed";
    }
    std::vector<pid_t> process = {Fork([&] {
        if (setuid(kUser) != 0) {
            _exit(1);
        }
        ILog* const log = StartLog(path);
        std::vector<std::thread> threads;
        for (int writer = 0; writer < kThreads; ++writer) {
            threads.emplace_back([=] {
                for (int number = 0; number < records; ++number) {
                    LogNumber(log, writer, number);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    })};
    if (!WaitForAll(process, seconds(300))) {
        return "the writer hung or crashed\n";
    }
    std::string wrong;
    if (ReadFile(path + ".1") != "the user's\n" || ReadFile(path + ".2") != "root's\n" ||
        OldFiles(path).size() != 2) {
        wrong = "an old file was changed\n";
    }
    Content content;
    ReadInto(content, path);
    std::map<int, int> written;
    for (int writer = 0; writer < kThreads; ++writer) {
        written[writer] = records;
    }
    return wrong + CheckWhole(content) + CheckNumbers(content, written);
}
