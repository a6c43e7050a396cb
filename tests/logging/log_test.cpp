#include "logging/log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/log_recorder.h"

ILog* logger = nullptr;

namespace {

struct Call
{
    const void* self;
    LOGLEVEL level;
    std::string text;
};

Call g_last_call;

// The third entry of the table of a library, which every version of it has.
void ThirdEntry(void* self, LOGLEVEL level, const char* format, va_list arguments)
{
    char text[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(text, sizeof text, format, arguments);
#pragma GCC diagnostic pop
    g_last_call = {self, level, text};
}

void Uncalled()
{
    FAIL() << "an entry before LogV was called";
}

}  // namespace

TEST(Log, DropsRecordsWhileThereIsNoLog)
{
    // A format that would read missing arguments.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    __LOG__A(nullptr, LOGLEVEL_ERROR, "%s%n");
    __LOG__A(logger, LOGLEVEL_ERROR, "%s%n");
#pragma GCC diagnostic pop
}

TEST(Log, PassesLevelFormatAndArgumentsOn)
{
    LogRecorder recorder;
    __LOG__A(&recorder, LOGLEVEL_WARNING, "[LAUNCHER  ] %s %d", "x", 7);
    EXPECT_EQ(recorder.records(), (std::vector<Record>{{LOGLEVEL_WARNING, "[LAUNCHER  ] x 7"}}));
}

TEST(Log, CallsTheThirdEntryOfTheTable)
{
    using Entry = void (*)();
    const Entry table[] = {Uncalled, Uncalled, reinterpret_cast<Entry>(ThirdEntry), Uncalled};
    struct
    {
        const Entry* table;
    } object = {table};

    __LOG__A(reinterpret_cast<ILog*>(&object), LOGLEVEL_ERROR, "%d-%s", 1, "two");

    EXPECT_EQ(g_last_call.self, &object);
    EXPECT_EQ(g_last_call.level, LOGLEVEL_ERROR);
    EXPECT_EQ(g_last_call.text, "1-two");
}

TEST(Log, LevelsHaveTheNumbersOfLibrariesAndSettings)
{
    EXPECT_EQ(LOGLEVEL_DEBUG, 1);
    EXPECT_EQ(LOGLEVEL_MESSAGE, 2);
    EXPECT_EQ(LOGLEVEL_WARNING, 4);
    EXPECT_EQ(LOGLEVEL_ERROR, 8);
    EXPECT_EQ(LOGLEVEL_CRITICAL, 16);
    EXPECT_EQ(LOGLEVEL_VERBOSE, 17);
    EXPECT_EQ(sizeof(LOGLEVEL), 4U);
}
