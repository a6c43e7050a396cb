#include "qv7log/timestamp.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

namespace {

constexpr std::int64_t kFirst = -62167219200;  // 0000-01-01T00:00:00Z
constexpr std::int64_t kLast = 253402300799;   // 9999-12-31T23:59:59Z

std::string Stamp(std::int64_t seconds, long nanoseconds = 0)
{
    timespec time = {};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = nanoseconds;
    char text[qv7log::kTimestampSize + 1] = {};
    EXPECT_EQ(qv7log::PutTimestamp(text, time), text + qv7log::kTimestampSize);
    return text;
}

std::string SystemStamp(std::int64_t seconds)
{
    const auto time = static_cast<time_t>(seconds);
    struct tm parts = {};
    gmtime_r(&time, &parts);
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.000Z", parts.tm_year + 1900,
             parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

TEST(PutTimestamp, AgreesWithTheSystemOnEveryDay)
{
    for (std::int64_t day = kFirst; day <= kLast; day += 86400) {
        const std::int64_t time =
            day + (day / 86400 % 2 == 0 ? 0 : 86399);  // its beginning or its end
        ASSERT_EQ(Stamp(time), SystemStamp(time)) << time;
    }
}

TEST(PutTimestamp, AgreesWithTheSystemOnEverySecondOfADay)
{
    constexpr std::int64_t kLeapDay = 951782400;  // 2000-02-29
    for (std::int64_t second = kLeapDay; second < kLeapDay + 86400; ++second) {
        ASSERT_EQ(Stamp(second), SystemStamp(second));
    }
}

TEST(PutTimestamp, AgreesWithTheSystemAtRandomTimes)
{
    std::mt19937_64 random(1);
    std::uniform_int_distribution<std::int64_t> times(kFirst, kLast);
    for (int i = 0; i < 100000; ++i) {
        const std::int64_t time = times(random);
        ASSERT_EQ(Stamp(time), SystemStamp(time)) << time;
    }
}

TEST(PutTimestamp, RoundsDownToMilliseconds)
{
    EXPECT_EQ(Stamp(0, 0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(Stamp(0, 999999), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(Stamp(1795228811, 123999999), "2026-11-21T02:40:11.123Z");
    EXPECT_EQ(Stamp(0, 999999999), "1970-01-01T00:00:00.999Z");
    EXPECT_EQ(Stamp(-1, 1000000), "1969-12-31T23:59:59.001Z");
}

TEST(PutTimestamp, ClampsYearsToFourDigits)
{
    EXPECT_EQ(Stamp(kFirst - 1), "0000-01-01T00:00:00.000Z");
    EXPECT_EQ(Stamp(kLast + 1), "9999-12-31T23:59:59.000Z");
    EXPECT_EQ(Stamp(INT64_MIN), "0000-01-01T00:00:00.000Z");
    EXPECT_EQ(Stamp(INT64_MAX), "9999-12-31T23:59:59.000Z");
}

TEST(IsTimestamp, ChecksEveryCharacter)
{
    const std::string stamp = "2026-11-21T02:26:11.123Z";
    ASSERT_TRUE(qv7log::IsTimestamp(stamp.data()));
    for (std::size_t i = 0; i < stamp.size(); ++i) {
        std::string other = stamp;
        other[i] = 'x';
        EXPECT_FALSE(qv7log::IsTimestamp(other.data())) << i;
    }
}

}  // namespace
