#include <fcntl.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <tuple>
#include <utility>

#include "qv7log/timestamp.h"
#include "tests/qv7log/proofs/helpers.h"
#include "tests/qv7log/proofs/proofs.h"

namespace {

// The log must rotate at least once in this many removals; the next removal waits for it.
constexpr int kRemovalsPerFile = 20;

// An open file that was removed, and the latest timestamp that a record in it may have.
struct Removed
{
    int file;
    std::string latest;
};

std::string TimestampIn(milliseconds delay)
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_nsec += static_cast<long>(delay.count()) * 1000000;
    time.tv_sec += time.tv_nsec / 1000000000;
    time.tv_nsec %= 1000000000;
    char stamp[qv7log::kTimestampSize];
    qv7log::PutTimestamp(stamp, time);
    return {stamp, sizeof stamp};
}

using Identity = std::pair<std::string, std::string>;  // the time and the text of a record

Identity IdentityOf(const qv7log::Record& record)
{
    return {record.time, record.text};
}

// Adds the records of the removed file to `content`, whose records' identities are `known`. Returns
// an error message, or "".
//
// A record may be in a removed file and also in the log: a writer that was stopped for some
// milliseconds before it wrote, and then finds its file removed, writes the record again. It cannot
// know that this proof still reads the removed file. Such a record counts once.
std::string ReadRemoved(const Removed& removed, Content& content, std::set<Identity>& known)
{
    const std::size_t first = content.records.size();
    std::string text(static_cast<std::size_t>(lseek(removed.file, 0, SEEK_END)), '\0');
    if (pread(removed.file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        return "a removed file cannot be read";
    }
    close(removed.file);
    std::string_view rest = text;
    qv7log::Entry entry;
    while (qv7log::NextEntry(rest, entry)) {
        if (!entry.is_record) {
            return "torn in a removed file: " + std::string(entry.raw);
        }
        if (entry.record.time > removed.latest) {
            return "too late, since " + removed.latest + ": " + std::string(entry.raw);
        }
        if (known.count(IdentityOf(entry.record)) == 0) {
            content.records.push_back(entry.record);
        }
    }
    for (std::size_t i = first; i < content.records.size(); ++i) {
        known.insert(IdentityOf(content.records[i]));
    }
    return "";
}

}  // namespace

std::string RemovedUnderLoad(const std::string& directory, int removals)
{
    const std::string path = directory + "/log";
    ILog* const log = StartLog(path);
    Archive archive(path, directory + "/archive");
    Writers writers(log, 8, microseconds(50));
    std::vector<Removed> removed;
    std::string wrong;
    for (int i = 0; i < removals && wrong.empty(); ++i) {
        // Rename the log first: a rotation could put another file there between open and unlink.
        const std::string aside = directory + "/aside";
        if (rename(path.c_str(), aside.c_str()) == 0) {
            const int file = open(aside.c_str(), O_RDONLY | O_CLOEXEC);
            unlink(aside.c_str());
            removed.push_back({file, TimestampIn(milliseconds(1000))});
        }
        std::this_thread::sleep_for(milliseconds(2));
        wrong += archive.WaitForFiles((i + 1) / kRemovalsPerFile);
    }
    const std::map<int, int> written = writers.Finish();
    if (!wrong.empty()) {
        return wrong;
    }
    LogNumber(log, kLastWriter, 0);
    Content content = archive.Finish();
    wrong = CheckWhole(content);
    std::set<Identity> known;
    for (const qv7log::Record& record : content.records) {
        known.insert(IdentityOf(record));
    }
    for (const Removed& one : removed) {
        wrong += ReadRemoved(one, content, known);
    }
    // Removed files have no position among the others: sort the records by number.
    std::sort(content.records.begin(), content.records.end(),
              [](const qv7log::Record& a, const qv7log::Record& b) {
                  int writers_of[2] = {-1, -1};  // the value for a record that reports losses
                  int numbers[2] = {};
                  ReadNumber(a, writers_of[0], numbers[0]);
                  ReadNumber(b, writers_of[1], numbers[1]);
                  return std::tie(writers_of[0], numbers[0]) < std::tie(writers_of[1], numbers[1]);
              });
    std::printf("  %zu removals\n", removed.size());
    return wrong + CheckKeptOrCounted(content, written);
}
