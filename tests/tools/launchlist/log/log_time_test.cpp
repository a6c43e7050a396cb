#include "tools/launchlist/log/log_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdint>
#include <ctime>
#include <string>

using namespace launchlist;

TEST(ParseTimeStamp, CountsMillisecondsFrom1970)
{
    const struct
    {
        const char* text;
        Milliseconds time;
    } kTable[] = {
        {"1970-01-01T00:00:00.000Z", 0},
        {"1970-01-01T00:00:01.002Z", 1002},
        {"1969-12-31T23:59:59.999Z", -1},
        {"2000-02-29T12:00:00.000Z", 951825600000},
        {"2026-11-21T02:26:11.123Z", 1795227971123},
        {"0000-01-01T00:00:00.000Z", -62167219200000},
        {"9999-12-31T23:59:59.999Z", 253402300799999},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(ParseTimeStamp(row.text), row.time) << row.text;
        EXPECT_EQ(FormatTimeStamp(row.time), row.text);
    }
}

TEST(ParseTimeStamp, AgreesWithTheSystemCalendar)
{
    // Every day from the year 1600 to 2400: several leap-year cycles.
    for (std::int64_t day = -135140; day < 157054; ++day) {
        const std::time_t time = day * 86400;
        std::tm parts = {};
        ASSERT_NE(gmtime_r(&time, &parts), nullptr);
        char text[64];
        std::strftime(text, sizeof text, "%Y-%m-%dT00:00:00.000Z", &parts);
        ASSERT_EQ(FormatTimeStamp(day * 86400000), text);
        ASSERT_EQ(ParseTimeStamp(text), day * 86400000) << text;
        // The day after the last of a month does not exist.
        std::strftime(text, sizeof text, "%Y-%m-", &parts);
        const std::string next = text + std::to_string(parts.tm_mday + 1) + "T00:00:00.000Z";
        const std::time_t tomorrow = time + 86400;
        const bool is_last = gmtime_r(&tomorrow, &parts)->tm_mday == 1;
        if (is_last) {
            ASSERT_FALSE(ParseTimeStamp(next)) << next;
        }
    }
}

TEST(ParseTimeStamp, RejectsInvalidTimes)
{
    for (const char* text :
         {"", "2026-11-21", "2026-11-21T02:26:11Z", "2026-11-21T02:26:11.123",
          "2026-13-01T00:00:00.000Z", "2026-00-01T00:00:00.000Z", "2026-02-29T00:00:00.000Z",
          "2026-04-31T00:00:00.000Z", "2026-01-00T00:00:00.000Z", "2026-01-01T24:00:00.000Z",
          "2026-01-01T00:60:00.000Z", "2026-01-01T00:00:60.000Z", "2026-01-01 00:00:00.000Z",
          "-026-01-01T00:00:00.000Z", "2026-01-01T00:00:0:.000Z", "2026-01-01T00:00:0/.000Z",
          "2026-01-01T00:00:00.000Z "}) {
        EXPECT_FALSE(ParseTimeStamp(text)) << text;
    }
}

TEST(ParseMoment, AcceptsPartialTimesAndAges)
{
    const Milliseconds now = 1795227971123;
    const struct
    {
        const char* text;
        const char* time;
    } kTable[] = {
        {"2026-11-21", "2026-11-21T00:00:00.000Z"},
        {"2026-11-21T02:26", "2026-11-21T02:26:00.000Z"},
        {"2026-11-21 02:26", "2026-11-21T02:26:00.000Z"},
        {"2026-11-21 02:26:11Z", "2026-11-21T02:26:11.000Z"},
        {"2026-11-21T02:26:11.5", nullptr},
        {"2026-11-21T02:26:11.123Z", "2026-11-21T02:26:11.123Z"},
        {"0s", "2026-11-21T02:26:11.123Z"},
        {"90s", "2026-11-21T02:24:41.123Z"},
        {"15m", "2026-11-21T02:11:11.123Z"},
        {"2h", "2026-11-21T00:26:11.123Z"},
        {"3d", "2026-11-18T02:26:11.123Z"},
        {"1000000000s", "1995-03-15T00:39:31.123Z"},
        {"1000000001s", nullptr},
        {"3", nullptr},
        {"3 d", nullptr},
        {"/3d", nullptr},
        {":3d", nullptr},
        {"3w", nullptr},
        {"-3d", nullptr},
        {"99999999999999999999d", nullptr},
        {"", nullptr},
        {"now", nullptr},
    };
    for (const auto& row : kTable) {
        const auto time = ParseMoment(row.text, now);
        EXPECT_EQ(time.has_value(), row.time != nullptr) << row.text;
        if (time && row.time != nullptr) {
            EXPECT_EQ(FormatTimeStamp(*time), row.time);
        }
    }
}

namespace {

// Sets the time zone of this machine for a test.
class TimeZone
{
public:
    explicit TimeZone(const char* zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone()
    {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

}  // namespace

TEST(ParseMoment, ReadsLocalTimes)
{
    const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const Milliseconds now = *ParseTimeStamp("2026-07-21T23:30:00.000Z");
    const struct
    {
        const char* text;
        const char* time;
    } kTable[] = {
        {"2026-11-21 02:26", "2026-11-21T01:26:00.000Z"},
        {"2026-07-21T02:26:30", "2026-07-21T00:26:30.000Z"},
        {"2026-07-21T02:26Z", "2026-07-21T02:26:00.000Z"},
        {"2026-11-21", "2026-11-20T23:00:00.000Z"},
        {"09:00", "2026-07-22T07:00:00.000Z"},
        {"09:00:51", "2026-07-22T07:00:51.000Z"},
        {"30m", "2026-07-21T23:00:00.000Z"},
        // The hour that the clocks repeat, and times next to the one that they skip.
        {"2026-10-25 01:59", "2026-10-24T23:59:00.000Z"},
        {"2026-10-25 03:00", "2026-10-25T02:00:00.000Z"},
        {"2026-03-29 01:59", "2026-03-29T00:59:00.000Z"},
        {"2026-03-29 03:00", "2026-03-29T01:00:00.000Z"},
    };
    for (const auto& row : kTable) {
        const auto time = ParseMoment(row.text, now, Zone::kLocal);
        ASSERT_TRUE(time) << row.text;
        EXPECT_EQ(FormatTimeStamp(*time), row.time) << row.text;
    }
    EXPECT_FALSE(ParseMoment("2026-07-32", now, Zone::kLocal));
    EXPECT_EQ(ParseMoment("09:00", now), ParseTimeStamp("2026-07-21T09:00:00.000Z"));
    EXPECT_FALSE(ParseMoment("9:00", now));
    EXPECT_FALSE(ParseMoment("24:00", now));
}

TEST(WallTimeOf, ShowsTheClockAndItsOffset)
{
    const struct
    {
        const char* zone;
        const char* time;
        const char* text;
    } kTable[] = {
        {"CET-1CEST,M3.5.0,M10.5.0/3", "2026-11-21T23:30:59.999Z", "2026-11-22 00:30:59 UTC+01:00"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", "2026-07-21T02:00:00.000Z", "2026-07-21 04:00:00 UTC+02:00"},
        {"<-0330>3:30", "2026-01-01T02:00:00.000Z", "2025-12-31 22:30:00 UTC-03:30"},
        {"UTC0", "2026-01-01T02:00:00.000Z", "2026-01-01 02:00:00 UTC+00:00"},
        {"UTC0", "1969-12-31T23:59:59.001Z", "1969-12-31 23:59:59 UTC+00:00"},
    };
    for (const auto& row : kTable) {
        const TimeZone zone(row.zone);
        const WallTime time = WallTimeOf(*ParseTimeStamp(row.time), Zone::kLocal);
        EXPECT_EQ(time.date + " " + time.clock + " " + time.zone, row.text);
    }
    const TimeZone zone("CET-1");
    const WallTime time = WallTimeOf(0, Zone::kUtc);
    EXPECT_EQ(time.date + " " + time.clock + " " + time.zone, "1970-01-01 00:00:00 UTC");
}

TEST(FormatRange, OmitsARepeatedDay)
{
    EXPECT_EQ(FormatRange(0, 86399000), "1970-01-01 00:00:00 to 23:59:59 UTC");
    EXPECT_EQ(FormatRange(0, 86400000), "1970-01-01 00:00:00 to 1970-01-02 00:00:00 UTC");
}

TEST(FormatDuration, ChoosesTheUnit)
{
    const struct
    {
        Milliseconds duration;
        const char* text;
    } kTable[] = {
        {0, "0.00 s"},          {312, "0.31 s"},          {990, "0.99 s"},
        {1000, "1.0 s"},        {4200, "4.2 s"},          {59900, "59.9 s"},
        {60000, "1 min 0 s"},   {125000, "2 min 5 s"},    {3599999, "59 min 59 s"},
        {3600000, "1 h 0 min"}, {12000000, "3 h 20 min"}, {86399999, "23 h 59 min"},
        {86400000, "1 d 0 h"},  {356400000, "4 d 3 h"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(FormatDuration(row.duration), row.text);
    }
}
