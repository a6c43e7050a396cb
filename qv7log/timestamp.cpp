#include "qv7log/timestamp.h"

#include <algorithm>
#include <cstdint>

#include "qv7log/calendar.h"

namespace qv7log {
namespace {

constexpr std::int64_t kSecondsPerDay = 24 * 60 * 60;
constexpr std::int64_t kFirstSecond = DaysSince1970({0, 1, 1}) * kSecondsPerDay;
constexpr std::int64_t kLastSecond = DaysSince1970({10000, 1, 1}) * kSecondsPerDay - 1;

// Writes `value` into `field` of the timestamp at `out`.
void PutField(char* out, TimestampField field, unsigned value)
{
    for (std::size_t i = field.size; i > 0; --i) {
        out[field.at + i - 1] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

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
    PutField(out, kYearField, static_cast<unsigned>(date.year));
    PutField(out, kMonthField, static_cast<unsigned>(date.month));
    PutField(out, kDayField, static_cast<unsigned>(date.day));
    PutField(out, kHourField, second_of_day / 3600);
    PutField(out, kMinuteField, second_of_day / 60 % 60);
    PutField(out, kSecondField, second_of_day % 60);
    PutField(out, kMillisecondField, static_cast<unsigned>(time.tv_nsec / 1000000));
    return out + kTimestampSize;
}

bool IsTimestamp(const char* text)
{
    for (std::size_t i = 0; i < kTimestampSize; ++i) {
        const char form = kTimestampForm[i];
        const bool fits = form == '0' ? text[i] >= '0' && text[i] <= '9' : text[i] == form;
        if (!fits) {
            return false;
        }
    }
    return true;
}

}  // namespace qv7log
