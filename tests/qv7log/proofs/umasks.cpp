#include <sys/stat.h>

#include "qv7log/limits.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

// Starts a log, fills it, and starts it again in another process. Exits with the failed step.
void RunWithMask(const std::string& path, mode_t mask)
{
    // Permissions do not apply to root.
    if (getuid() == 0 && setuid(65534) != 0) {
        _exit(1);
    }
    umask(mask);
    ILog* const log = StartLog(path);
    if (log == nullptr) {
        _exit(2);
    }
    Log(log, LOGLEVEL_ERROR, "%0*d", static_cast<int>(qv7log::kRotateSize), 1);
    std::vector<pid_t> second = {Fork([&] {
        ILog* const again = StartLog(path);
        if (again == nullptr) {
            _exit(1);
        }
        Log(again, LOGLEVEL_ERROR, "%0*d", static_cast<int>(qv7log::kRotateSize), 2);
    })};
    _exit(WaitForAll(second) && Exists(path + ".2") ? 0 : 3);
}

}  // namespace

std::string EveryMask(const std::string& directory, int step)
{
    chmod(directory.c_str(), 0777);
    for (unsigned mask = 0; mask <= 0777; mask += static_cast<unsigned>(step)) {
        const std::string path = directory + "/" + std::to_string(mask) + "/a/log";
        std::vector<pid_t> process = {Fork([&] { RunWithMask(path, static_cast<mode_t>(mask)); })};
        if (!WaitForAll(process)) {
            return "failed with the umask " + std::to_string(mask) + "\n";
        }
    }
    return "";
}
