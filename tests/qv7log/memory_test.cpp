// Which records use the heap, and what happens to them if it is exhausted. This test replaces the
// operators new and delete.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstddef>
#include <new>
#include <string>

#include "qv7log/limits.h"
#include "qv7log/record.h"
#include "tests/qv7log/read_log.h"

namespace {

int g_calls = 0;
bool g_no_memory = false;

void* Allocate(std::size_t size)
{
    ++g_calls;
    return g_no_memory ? nullptr : malloc(size);
}

void* AllocateOrThrow(std::size_t size)
{
    void* const memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

// Not inline, or GCC warns that memory from operator new is passed to free.
[[gnu::noinline]] void Free(void* memory)
{
    free(memory);
}

}  // namespace

void* operator new(std::size_t size)
{
    return AllocateOrThrow(size);
}

void* operator new[](std::size_t size)
{
    return AllocateOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    Free(memory);
}

void operator delete[](void* memory) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    Free(memory);
}

namespace {

// Logs `text` and returns the number of allocations.
int CallsToLog(ILog* log, const std::string& text)
{
    g_calls = 0;
    Log(log, LOGLEVEL_ERROR, "%s", text.c_str());
    return g_calls;
}

TEST(LogV, UsesTheHeapOnceAndOnlyForLongTexts)
{
    constexpr std::size_t kMaxPlain = qv7log::kStackLine - qv7log::kMaxFraming;
    constexpr std::size_t kMaxEscaped = kMaxPlain / qv7log::kEscapedSize;
    const struct
    {
        std::size_t size;
        char filler;
        int calls;
    } kTable[] = {
        {0, 'a', 0},
        {kMaxPlain, 'a', 0},
        {kMaxEscaped, '\x1b', 0},
        {kMaxEscaped + 1, '\x1b', 1},
        {qv7log::kStackLine, 'a', 1},
        {qv7log::kMaxText + 1, 'a', 1},
        {qv7log::kMaxText + 1, '\x1b', 1},
    };
    for (const auto& row : kTable) {
        TempDirectory directory;
        ILog* const log = StartLog(directory / "log");
        EXPECT_EQ(CallsToLog(log, std::string(row.size, row.filler)), row.calls) << row.size;
    }
}

TEST(LogV, DoesNotUseTheHeapForARotation)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    const std::string text(qv7log::kStackLine / 2, '.');
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(CallsToLog(log, text), 0);
    }
    EXPECT_TRUE(Exists(directory / "log.1"));
}

TEST(LogV, WritesTheBeginningOfALongTextIfTheHeapIsExhausted)
{
    const std::string e_acute = "\xc3\xa9";
    constexpr std::size_t kKept =
        (qv7log::kStackLine - qv7log::kMaxFraming - 1) / qv7log::kEscapedSize;
    const struct
    {
        const char* what;
        std::string text;
        std::size_t kept;
    } kTable[] = {
        {"the shortest", std::string(qv7log::kStackLine, 'a'), kKept},
        {"one that is cut with memory, too", std::string(qv7log::kMaxText + 1, 'a'), kKept},
        {"one that is escaped", std::string(qv7log::kStackLine, '\x1b'), kKept},
        {"a character at the cut", std::string(kKept - 1, 'a') + e_acute + std::string(3000, 'b'),
         kKept - 1},
    };
    for (const auto& row : kTable) {
        TempDirectory directory;
        ILog* const log = StartLog(directory / "log");
        g_no_memory = true;
        const int calls = CallsToLog(log, row.text);
        g_no_memory = false;
        EXPECT_EQ(calls, 1) << row.what;
        const Content content = ReadLog(directory / "log");
        EXPECT_TRUE(content.others.empty()) << row.what;
        ASSERT_EQ(content.records.size(), 1U) << row.what;
        EXPECT_EQ(content.records[0].text, row.text.substr(0, row.kept)) << row.what;
        EXPECT_EQ(content.records[0].cut, row.text.size() - row.kept) << row.what;
    }
}

TEST(InitLogger, ReportsThatTheHeapIsExhausted)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    g_no_memory = true;
    const int error = InitLogger(path.c_str());
    g_no_memory = false;
    EXPECT_EQ(error, ENOMEM);
    EXPECT_FALSE(Exists(path));
    EXPECT_EQ(InitLogger(path.c_str()), 0);
}

TEST(GetLogger, ReportsThatTheHeapIsExhausted)
{
    TempDirectory directory;
    ASSERT_EQ(InitLogger((directory / "log").c_str()), 0);
    ILog* log = nullptr;
    g_no_memory = true;
    const int error = GetLogger(LOGKIND_FILE, "launcher", LOGLEVEL_DEBUG, &log);
    g_no_memory = false;
    EXPECT_EQ(error, ENOMEM);
    EXPECT_EQ(log, nullptr);
}

}  // namespace
