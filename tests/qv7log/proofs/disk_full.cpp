#include <fcntl.h>

#include <algorithm>

#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

std::string DiskFull(const std::string& directory, int rounds)
{
    const std::string path = directory + "/log";
    const std::string ballast = directory + "/ballast";
    ILog* const log = StartLog(path);
    const auto fill = [&] {
        const std::string block(4096, 'x');
        const int file = open(ballast.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        while (write(file, block.data(), block.size()) > 0) {
        }
        close(file);
    };
    Writers writers(log, 4, microseconds(500));
    for (int i = 0; i < rounds; ++i) {
        fill();
        std::this_thread::sleep_for(milliseconds(40));  // the disk stays full for this time
        fill();
        unlink(ballast.c_str());
        std::this_thread::sleep_for(milliseconds(10));
    }
    const std::map<int, int> written = writers.Finish();
    LogNumber(log, kLastWriter, 0);
    const Content content = ReadLog(path);
    if (std::none_of(content.records.begin(), content.records.end(), [](const qv7log::Record& r) {
            return r.text.rfind("[QV7LOG    ]", 0) == 0;
        })) {
        return "the disk was never full";
    }
    return CheckKeptOrCounted(content, written);
}
