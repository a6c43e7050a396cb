// The helper program that every measured launcher runs.
//
// Runs for LIFE_MS milliseconds (negative: until it is killed) and appends one record to
// /tmp/bench/starts. A helper that exits writes the record just before, with the times of its start
// and end. Each duration has its own program, which needs no arguments and so can replace a run
// script.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

#ifndef LIFE_MS
#error "define LIFE_MS"
#endif

namespace {

// Read by inside.py.
struct Record
{
    std::int32_t life_ms;
    std::int32_t parent;
    std::int64_t start_ns;
    std::int64_t end_ns;  // 0 for a helper that stays.
};

constexpr std::int64_t kSecond = 1000000000;

std::int64_t Now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

}  // namespace

int main()
{
    Record record = {LIFE_MS, getppid(), Now(), 0};
    if (LIFE_MS > 0) {
        const timespec life = {LIFE_MS / 1000, LIFE_MS % 1000 * 1000000};
        nanosleep(&life, nullptr);
    }
    const int file = open("/tmp/bench/starts", O_WRONLY | O_APPEND);
    if (LIFE_MS >= 0) {
        record.end_ns = Now();
    }
    if (write(file, &record, sizeof record) != sizeof record) {
        return 1;
    }
    while (LIFE_MS < 0) {
        pause();
    }
    _exit(0);
}
