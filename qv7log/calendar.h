// The Gregorian calendar, applied to every year, as pure arithmetic.
//
// The system's functions (gmtime_r, localtime_r) take a lock. A child forked while another thread
// holds that lock would hang in them, so nothing on the log path may call them.
#pragma once

#include <cstdint>

namespace qv7log {

struct Date
{
    std::int64_t year;
    int month;  // 1 to 12
    int day;    // 1 to 31
};

constexpr int DaysInMonth(std::int64_t year, int month)
{
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool is_leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return kDays[month - 1] + (month == 2 && is_leap ? 1 : 0);
}

// Both functions below count years from March, so that the leap day is the last day of its year,
// and in eras of 400 years, which all have the same length. Era 0 begins at 0000-03-01.
constexpr std::int64_t kDaysPerEra = 146097;
constexpr std::int64_t kDaysFromEra0To1970 = 719468;

// The number of days from 1970-01-01 to `date`, which must exist.
constexpr std::int64_t DaysSince1970(const Date& date)
{
    const std::int64_t year = date.month <= 2 ? date.year - 1 : date.year;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t year_of_era = year - era * 400;
    const std::int64_t month_from_march = date.month > 2 ? date.month - 3 : date.month + 9;
    const std::int64_t day_of_year = (153 * month_from_march + 2) / 5 + date.day - 1;
    const std::int64_t day_of_era =
        365 * year_of_era + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * kDaysPerEra + day_of_era - kDaysFromEra0To1970;
}

// The inverse of DaysSince1970.
constexpr Date DateOfDay(std::int64_t days_since_1970)
{
    const std::int64_t days = days_since_1970 + kDaysFromEra0To1970;
    const std::int64_t era = (days >= 0 ? days : days - (kDaysPerEra - 1)) / kDaysPerEra;
    // Unsigned 32-bit divisions are cheaper, and one of them is in every record.
    const auto day_of_era = static_cast<std::uint32_t>(days - era * kDaysPerEra);
    const std::uint32_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const std::uint32_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::uint32_t month_from_march = (5 * day_of_year + 2) / 153;
    const std::uint32_t day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
    const std::uint32_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    return {era * 400 + year_of_era + (month <= 2 ? 1 : 0), static_cast<int>(month),
            static_cast<int>(day)};
}

}  // namespace qv7log
