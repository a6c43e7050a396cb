// How much stack a log call needs, measured on a thread whose stack is filled with a pattern.
#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

#include "qv7log/limits.h"
#include "tests/qv7log/read_log.h"

namespace {

// The limit that qv7log.h promises, including the frames of system functions.
constexpr std::size_t kPromised = 5 * 1024;

constexpr std::size_t kStackSize = 256 * 1024;
constexpr unsigned char kPattern = 0xA5;

struct Measurement
{
    const std::function<void()>* body;
    unsigned char* stack;
    std::size_t used;
};

// Not inline, so that its frame is above everything that is measured.
[[gnu::noinline]] void* Measure(void* argument)
{
    auto* const measurement = static_cast<Measurement*>(argument);
    unsigned char* const top = static_cast<unsigned char*>(__builtin_frame_address(0));
    // Fill everything below this frame, including what the start of the thread has used.
    constexpr std::ptrdiff_t kOwnFrames = 1024;
    for (unsigned char* at = measurement->stack; at < top - kOwnFrames; ++at) {
        *at = kPattern;
    }
    (*measurement->body)();
    const unsigned char* lowest = measurement->stack;
    while (*lowest == kPattern) {
        ++lowest;
    }
    measurement->used = static_cast<std::size_t>(top - lowest);
    return nullptr;
}

std::size_t StackUsedBy(const std::function<void()>& body)
{
    void* const stack =
        mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstack(&attributes, stack, kStackSize), 0);
    Measurement measurement = {&body, static_cast<unsigned char*>(stack), 0};
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, Measure, &measurement), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    munmap(stack, kStackSize);
    return measurement.used;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is not in ISO C++
TEST(LogV, NeedsNoMoreStackThanPromised)
{
    TempDirectory directory;
    const std::string path = directory / "a/log";
    ILog* const log = StartLog(path);
    ASSERT_NE(log, nullptr);
    const std::string full(qv7log::kRotateSize, '\x1b');
    const struct
    {
        const char* what;
        std::function<void()> prepare;
        std::function<void()> body;
    } kTable[] = {
        {"nothing", [] {}, [] {}},
        {"a short record", [] {},
         [&] { Log(log, LOGLEVEL_ERROR, "%s %d %m %5c", "text", 42, 'x'); }},
        {"an escaped record", [] {}, [&] { Log(log, LOGLEVEL_ERROR, "%s", "\x1b[1m"); }},
        {"an unformattable record", [] {}, [&] { Log(log, LOGLEVEL_ERROR, "%ls", L"text"); }},
        {"a rotation", [] {}, [&] { Log(log, LOGLEVEL_ERROR, "%s", full.c_str()); }},
        {"a removed directory",
         [&] {
             for (const std::string& file : OldFiles(path)) {
                 unlink(file.c_str());
             }
             unlink(path.c_str());
             unlink((path + ".lock").c_str());
             EXPECT_EQ(rmdir((directory / "a").c_str()), 0);
         },
         [&] { Log(log, LOGLEVEL_ERROR, "%s", full.c_str()); }},
    };
    for (const auto& row : kTable) {
        std::size_t used = 0;
        // Only the first call of a function goes through the dynamic linker, which may need more
        // stack.
        for (int round = 0; round < 2; ++round) {
            row.prepare();
            used = StackUsedBy(row.body);
        }
        std::printf("%s: %zu bytes\n", row.what, used);
        EXPECT_LE(used, kPromised) << row.what;
    }
    EXPECT_TRUE(Exists(path + ".1"));
}
#pragma GCC diagnostic pop

}  // namespace
