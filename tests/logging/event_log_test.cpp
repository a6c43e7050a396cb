#include "logging/event_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include "tests/support/fake_syslog.h"

namespace {

using Events = std::vector<std::pair<int, std::string>>;

Events Written(const std::string& source, std::uint64_t priority, const std::string& message)
{
    g_system_events.clear();
    WriteEvent(source, priority, message);
    return g_system_events;
}

}  // namespace

TEST(WriteEvent, JoinsSourceAndMessage)
{
    EXPECT_EQ(Written("Morvel Launcher", 3, "x"), (Events{{LOG_ERR, "Morvel Launcher : x"}}));
    EXPECT_EQ(Written("", 3, ""), (Events{{LOG_ERR, " : "}}));
}

TEST(WriteEvent, PassesThePriorityOnCutToAnInt)
{
    EXPECT_EQ(Written("s", LOG_DAEMON | LOG_INFO, "m"), (Events{{LOG_DAEMON | LOG_INFO, "s : m"}}));
    EXPECT_EQ(Written("s", (1ULL << 32) + 6, "m"), (Events{{6, "s : m"}}));
}

TEST(WriteEvent, PassesTheTextAsTheFormatItself)
{
    EXPECT_EQ(Written("a%%b", 3, "100%%"), (Events{{3, "a%b : 100%"}}));
}

TEST(WriteEvent, KeepsTheSystemsDefaultIdentity)
{
    g_openlog_calls = 0;
    Written("Morvel Launcher", 3, "x");
    EXPECT_EQ(g_openlog_calls, 0);
}
