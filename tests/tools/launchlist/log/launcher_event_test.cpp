#include "tools/launchlist/log/launcher_event.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

using namespace launchlist;

namespace {

Event Error(const std::string& text)
{
    static std::string kept;
    kept = "[LAUNCHER  ] " + text;
    return ReadEvent("ERROR", kept);
}

}  // namespace

TEST(ReadEvent, RecognisesEveryMessage)
{
    EXPECT_EQ(ReadEvent("DEBUG", "[LAUNCHER  ] Start to fork a b").kind, EventKind::kStart);
    EXPECT_EQ(ReadEvent("DEBUG", "[LAUNCHER  ] Start to fork a b").name, "a b");
    EXPECT_EQ(Error("There is an item has no name.").kind, EventKind::kNoName);
    EXPECT_EQ(Error("Error while parsing saved json string.").kind, EventKind::kListRejected);
    EXPECT_EQ(Error("Failed to fork a").kind, EventKind::kForkFailed);
    EXPECT_EQ(Error("program path of a is empty").kind, EventKind::kNoProgram);
    EXPECT_EQ(Error("program path of a is empty").name, "a");
    const Event end = Error("a b 12 is killed. ret = 12, status = 256");
    EXPECT_EQ(end.kind, EventKind::kEnd);
    EXPECT_EQ(end.name, "a b");
    EXPECT_EQ(end.child, 12);
    EXPECT_EQ(end.result, 12);
    EXPECT_EQ(end.wait_status, 256);
    const Event lost = ReadEvent("ERROR", "[QV7LOG    ] 7 records were lost");
    EXPECT_EQ(lost.kind, EventKind::kRecordsLost);
    EXPECT_EQ(lost.number, 7U);
    EXPECT_EQ(ReadEvent("ERROR", "[QV7LOG    ] 0 records were lost").kind, EventKind::kRecordsLost);
}

TEST(ReadEvent, KeepsNamesThatContainOtherMessages)
{
    const struct
    {
        const char* text;
        const char* name;
    } kTable[] = {
        {" 12 is killed. ret = 12, status = 0", ""},
        {"a 1 is killed. ret = 1, status = 9 12 is killed. ret = 12, status = 0",
         "a 1 is killed. ret = 1, status = 9"},
        {"Start to fork a 12 is killed. ret = -1, status = 0", "Start to fork a"},
        {"program path of a is empty 12 is killed. ret = 12, status = 0",
         "program path of a is empty"},
    };
    for (const auto& row : kTable) {
        const Event event = Error(row.text);
        EXPECT_EQ(event.kind, EventKind::kEnd) << row.text;
        EXPECT_EQ(event.name, row.name);
    }
    EXPECT_EQ(
        ReadEvent("DEBUG", "[LAUNCHER  ] Start to fork a 1 is killed. ret = 1, status = 0").kind,
        EventKind::kStart);
}

TEST(ReadEvent, IgnoresOtherTexts)
{
    for (const char* text :
         {"", "a is killed. ret = 12, status = 0", "a 12 is killed. ret = 13, status = 0",
          "a 12 is killed. ret = 12, status = ", "a 12 is killed. ret = 12, status = 99999999999",
          "a 12 is killed. ret = 12, status = -99999999999",
          "a 12 is killed. ret = 12, status = 0 ", "Start to fork a", "something new"}) {
        EXPECT_EQ(Error(text).kind, EventKind::kOther) << text;
    }
    EXPECT_EQ(ReadEvent("ERROR", "There is an item has no name.").kind, EventKind::kOther);
    for (const char* text :
         {"[QV7LOG    ] many records were lost", "[QV7LOG    ] -7 records were lost",
          "[QV7LOG    ] 7 7 records were lost", "[QV7LOG    ] 7 records", "7 records were lost"}) {
        EXPECT_EQ(ReadEvent("ERROR", text).kind, EventKind::kOther) << text;
    }
}

TEST(TextOf, NamesSignals)
{
    const struct
    {
        int number;
        const char* name;
    } kTable[] = {
        {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},       {SIGQUIT, "SIGQUIT"}, {SIGILL, "SIGILL"},
        {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},     {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
        {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"},     {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
        {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"}, {SIGXCPU, "SIGXCPU"},
        {SIGXFSZ, "SIGXFSZ"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}, {SIGSYS, "SIGSYS"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(TextOf({true, row.number}), std::string("killed by ") + row.name);
    }
}

TEST(TextOf, DescribesStatusesAndSignals)
{
    const struct
    {
        std::int64_t result;
        int wait_status;
        const char* words;
    } kTable[] = {
        {12, 0, "exit status 0"},
        {12, 3 << 8, "exit status 3"},
        {12, 255 << 8, "exit status 255"},
        {12, SIGKILL, "killed by SIGKILL"},
        {12, SIGSEGV | 0x80, "killed by SIGSEGV, core dumped"},
        {12, 126, "killed by signal 126"},
        {12, 0x137f, "wait status 4991"},
        {-1, 0, "unknown: waitpid failed"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(TextOf({row.result >= 0, row.wait_status}), row.words);
    }
}

TEST(Termination, GivesEitherAStatusOrASignal)
{
    EXPECT_EQ(ExitStatusOf({true, 3 << 8}), 3);
    EXPECT_FALSE(SignalOf({true, 3 << 8}));
    EXPECT_FALSE(ExitStatusOf({true, SIGSEGV | 0x80}));
    EXPECT_EQ(SignalOf({true, SIGSEGV | 0x80}), SIGSEGV);
    EXPECT_TRUE(HasCore({true, SIGSEGV | 0x80}));
    EXPECT_FALSE(HasCore({true, SIGSEGV}));
    EXPECT_FALSE(ExitStatusOf({false, 0}));
    EXPECT_FALSE(SignalOf({false, 9}));
}
