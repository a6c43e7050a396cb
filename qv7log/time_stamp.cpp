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
    unsigned year;
    unsigned month;
    unsigned day;
};

// The date of the Gregorian calendar, `days` after 0000-01-01. Years are counted from March, so
// that the leap day is the last day of its year, and in eras of 400 years, which all have the same
// length.
Date DateOfDay(unsigned days)
{
    constexpr unsigned kDaysPerEra = 146097;
    constexpr unsigned kDaysToMarch = 60;  // of the year 0, which is a leap year
    const unsigned since_start = days + kDaysPerEra - kDaysToMarch;  // from -400-03-01
    const unsigned day_of_era = since_start % kDaysPerEra;
    const unsigned year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const unsigned day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const unsigned month_from_march = (5 * day_of_year + 2) / 153;
    const unsigned day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
    const unsigned month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    const unsigned march_year = since_start / kDaysPerEra * 400 + year_of_era;  // from -400 too
    return {march_year + (month <= 2 ? 1 : 0) - 400, month, day};
}

// Writes `value`, which has no more than kDigits digits, in as many and after them `end`.
template <int kDigits>
char* PutDigits(char* out, unsigned value, char end)
{
    for (int i = kDigits - 1; i > 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out[0] = static_cast<char>('0' + value);
    out[kDigits] = end;
    return out + kDigits + 1;
}

}  // namespace

char* PutTimeStamp(char* out, const timespec& time)
{
    const std::int64_t seconds =
        std::clamp(static_cast<std::int64_t>(time.tv_sec), kFirstSecond, kLastSecond);
    const std::int64_t since_first = seconds - kFirstSecond;
    const Date date = DateOfDay(static_cast<unsigned>(since_first / kSecondsPerDay));
    const auto second_of_day = static_cast<unsigned>(since_first % kSecondsPerDay);
    out = PutDigits<4>(out, date.year, '-');
    out = PutDigits<2>(out, date.month, '-');
    out = PutDigits<2>(out, date.day, 'T');
    out = PutDigits<2>(out, second_of_day / 3600, ':');
    out = PutDigits<2>(out, second_of_day / 60 % 60, ':');
    out = PutDigits<2>(out, second_of_day % 60, '.');
    return PutDigits<3>(out, static_cast<unsigned>(time.tv_nsec / 1000000), 'Z');
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
