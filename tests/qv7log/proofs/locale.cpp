#include <locale.h>

#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

std::string ForksInSetlocale(const std::string& directory, int forks)
{
    const std::string path = directory + "/log";
    ILog* const log = StartLog(path);
    std::atomic<bool> stop{false};
    std::thread changing([&stop] {
        while (!stop) {
            setlocale(LC_ALL, "C.UTF-8");
            setlocale(LC_ALL, "C");
        }
    });
    std::string wrong;
    for (int i = 0; i < forks && wrong.empty(); ++i) {
        std::vector<pid_t> child = {Fork([log] {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is not in ISO C++
            Log(log, LOGLEVEL_ERROR, "%m, %ls, %f", L"wide", 1.5);
            Log(log, LOGLEVEL_ERROR, "%s: %m, %5d", "child", 7);
#pragma GCC diagnostic pop
        })};
        if (!WaitForAll(child, seconds(5))) {
            wrong = "a child hung after " + std::to_string(i) + " forks\n";
        }
    }
    stop = true;
    changing.join();
    return wrong;
}
