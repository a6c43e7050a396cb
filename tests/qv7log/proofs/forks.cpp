#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

// Child number 0 is this writer; smaller numbers are threads.
constexpr int kFirstChildWriter = 1000;

// The log must rotate at least once in this many forks; the next fork waits for it. Otherwise the
// proof would say nothing about forks during rotations.
constexpr int kForksPerFile = 500;

}  // namespace

std::string ForksWhileRotating(const std::string& directory, int forks)
{
    const std::string path = directory + "/log";
    ILog* const log = StartLog(path);
    Archive archive(path, directory + "/archive");
    Writers writers(log, 8, microseconds(100));
    std::vector<pid_t> children;
    std::string wrong;
    for (int i = 0; i < forks && wrong.empty(); ++i) {
        children.push_back(Fork([log, i] { LogNumber(log, kFirstChildWriter + i, 0); }));
        if (children.size() == 8 && !WaitForAll(children)) {
            wrong = "a child hung or crashed\n";
        }
        wrong += archive.WaitForFiles(i / kForksPerFile);
    }
    if (!WaitForAll(children)) {
        wrong += "a child hung or crashed\n";
    }
    std::map<int, int> written = writers.Finish();
    if (!wrong.empty()) {
        return wrong;
    }
    for (int i = 0; i < forks; ++i) {
        written[kFirstChildWriter + i] = 1;
    }
    const Content content = archive.Finish();
    return CheckWhole(content) + CheckNumbers(content, written);
}
