#include "qv7log/time_stamp.h"

#include <algorithm>
#include <cstdint>

namespace qv7log {
namespace {

constexpr char kForm[] = "0000-00-00T00:00:00.000Z";  // a 0 stands for any digit
static_assert(sizeof kForm == kTimeStampSize + 1);

constexpr std::int64_t kSecondsPerDay = 24 * 60 * 60;
constexpr std::int64_t kFirstSecond = -62167219200;  // 0000-01-01T00:00:00Z
constexpr std::int64_t kLastSecond = 253402300799;   // 9999-12-31T23:59:59Z

struct Date
{
    int year;
    int month;
    int day;
};

// The date of the Gregorian calendar, `days` after 1970-01-01. Years are counted from March, so
// that the leap day is the last day of its year, and in eras of 400 years, which all have the same
// length.
Date DateOfDay(std::int64_t days)
{
    constexpr int kDaysPerEra = 146097;
    constexpr int kDaysToEpoch = 719468;                                 // from 0000-03-01
    const std::int64_t since_start = days + kDaysToEpoch + kDaysPerEra;  // positive from -400-03-01
    const int era = static_cast<int>(since_start / kDaysPerEra) - 1;
    const int day_of_era = static_cast<int>(since_start % kDaysPerEra);
    const int year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int month_from_march = (5 * day_of_year + 2) / 153;
    const int day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
    const int month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    return {era * 400 + year_of_era + (month <= 2 ? 1 : 0), month, day};
}

// Writes `value` in kDigits digits and after them `end`.
template <int kDigits>
char* PutDigits(char* out, int value, char end)
{
    for (int i = kDigits - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out[kDigits] = end;
    return out + kDigits + 1;
}

}  // namespace

char* PutTimeStamp(char* out, const timespec& time)
{
    const std::int64_t seconds =
        std::clamp(static_cast<std::int64_t>(time.tv_sec), kFirstSecond, kLastSecond);
    const std::int64_t since_first = seconds - kFirstSecond;
    const Date date = DateOfDay(since_first / kSecondsPerDay + kFirstSecond / kSecondsPerDay);
    const int second_of_day = static_cast<int>(since_first % kSecondsPerDay);
    out = PutDigits<4>(out, date.year, '-');
    out = PutDigits<2>(out, date.month, '-');
    out = PutDigits<2>(out, date.day, 'T');
    out = PutDigits<2>(out, second_of_day / 3600, ':');
    out = PutDigits<2>(out, second_of_day / 60 % 60, ':');
    out = PutDigits<2>(out, second_of_day % 60, '.');
    return PutDigits<3>(out, static_cast<int>(time.tv_nsec / 1000000), 'Z');
}

bool IsTimeStamp(const char* text)
{
    for (std::size_t i = 0; i < kTimeStampSize; ++i) {
        const bool fits = kForm[i] == '0' ? text[i] >= '0' && text[i] <= '9' : text[i] == kForm[i];
        if (!fits) {
            return false;
        }
    }
    return true;
}

}  // namespace qv7log
