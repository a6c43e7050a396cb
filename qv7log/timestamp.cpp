#include "qv7log/timestamp.h"

#include <algorithm>
#include <cstdint>

#include "qv7log/calendar.h"

namespace qv7log {
namespace {

constexpr std::int64_t kSecondsPerDay = 24 * 60 * 60;
constexpr std::int64_t kFirstSecond = DaysSince1970({0, 1, 1}) * kSecondsPerDay;
constexpr std::int64_t kLastSecond = DaysSince1970({10000, 1, 1}) * kSecondsPerDay - 1;

// Writes `value`, which must be below 100, as two digits.
void PutTwoDigits(char* out, unsigned value)
{
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
}
static_assert(kYearField.size == 4 && kMonthField.size == 2 && kDayField.size == 2 &&
              kHourField.size == 2 && kMinuteField.size == 2 && kSecondField.size == 2 &&
              kMillisecondField.size == 3);

}  // namespace

char* PutTimestamp(char* out, const timespec& time)
{
    const std::int64_t seconds =
        std::clamp(static_cast<std::int64_t>(time.tv_sec), kFirstSecond, kLastSecond);
    const std::int64_t since_first = seconds - kFirstSecond;  // a positive number, for / and %
    const std::int64_t day = since_first / kSecondsPerDay + kFirstSecond / kSecondsPerDay;
    const Date date = DateOfDay(day);
    const auto second_of_day = static_cast<unsigned>(since_first % kSecondsPerDay);
    kTimestampForm.copy(out, kTimestampSize);
    const auto year = static_cast<unsigned>(date.year);
    PutTwoDigits(out + kYearField.at, year / 100);
    PutTwoDigits(out + kYearField.at + 2, year % 100);
    PutTwoDigits(out + kMonthField.at, static_cast<unsigned>(date.month));
    PutTwoDigits(out + kDayField.at, static_cast<unsigned>(date.day));
    PutTwoDigits(out + kHourField.at, second_of_day / 3600);
    PutTwoDigits(out + kMinuteField.at, second_of_day / 60 % 60);
    PutTwoDigits(out + kSecondField.at, second_of_day % 60);
    const auto milliseconds = static_cast<unsigned>(time.tv_nsec / 1000000);
    out[kMillisecondField.at] = static_cast<char>('0' + milliseconds / 100);
    PutTwoDigits(out + kMillisecondField.at + 1, milliseconds % 100);
    return out + kTimestampSize;
}

bool IsTimestamp(const char* text)
{
    for (std::size_t i = 0; i < kTimestampSize; ++i) {
        if (!MatchesTimestamp(text[i], i)) {
            return false;
        }
    }
    return true;
}

}  // namespace qv7log
