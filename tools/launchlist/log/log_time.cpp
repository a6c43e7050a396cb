#include "tools/launchlist/log/log_time.h"

#include <array>
#include <cstdlib>

#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr Milliseconds kSecond = 1000;
constexpr Milliseconds kMinute = 60 * kSecond;
constexpr Milliseconds kHour = 60 * kMinute;
constexpr Milliseconds kDay = 24 * kHour;

// Where the parts of a time stamp stand. 0 is any digit.
constexpr std::string_view kForm = "0000-00-00T00:00:00.000Z";

int Number(std::string_view text, std::size_t begin, std::size_t size)
{
    int number = 0;
    for (const char c : text.substr(begin, size)) {
        number = number * 10 + (c - '0');
    }
    return number;
}

bool HasForm(std::string_view text)
{
    if (text.size() != kForm.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == '0' ? !is_digit : text[i] != kForm[i]) {
            return false;
        }
    }
    return true;
}

int DaysOfMonth(int year, int month)
{
    constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool is_leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return kDays[static_cast<std::size_t>(month - 1)] + (month == 2 && is_leap ? 1 : 0);
}

// Days from 1970-01-01. Counted in years that begin in March, so that the leap day is the last.
std::int64_t DayNumber(int year, int month, int day)
{
    const std::int64_t y = month <= 2 ? year - 1 : year;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t year_of_era = y - era * 400;
    const std::int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * 146097 + day_of_era - 719468;
}

struct Date
{
    std::int64_t year;
    std::int64_t month;
    std::int64_t day;
};

// The inverse of DayNumber.
Date DateOf(std::int64_t days)
{
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const std::int64_t day_of_era = shifted - era * 146097;
    const std::int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const std::int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::int64_t from_march = (5 * day_of_year + 2) / 153;
    const std::int64_t month = from_march < 10 ? from_march + 3 : from_march - 9;
    return {year_of_era + era * 400 + (month <= 2 ? 1 : 0), month,
            day_of_year - (153 * from_march + 2) / 5 + 1};
}

std::optional<Milliseconds> ParseAge(const std::string& text)
{
    char* end = nullptr;
    const long long count = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || text[0] < '0' || text[0] > '9' || count > 1000000000) {
        return std::nullopt;
    }
    const std::string unit = end;
    const Milliseconds size = unit == "s"   ? kSecond
                              : unit == "m" ? kMinute
                              : unit == "h" ? kHour
                              : unit == "d" ? kDay
                                            : 0;
    return size != 0 ? std::optional<Milliseconds>(count * size) : std::nullopt;
}

}  // namespace

std::optional<Milliseconds> ParseTimeStamp(std::string_view text)
{
    if (!HasForm(text)) {
        return std::nullopt;
    }
    const int year = Number(text, 0, 4);
    const int month = Number(text, 5, 2);
    const int day = Number(text, 8, 2);
    const int hour = Number(text, 11, 2);
    const int minute = Number(text, 14, 2);
    const int second = Number(text, 17, 2);
    if (month < 1 || month > 12 || day < 1 || day > DaysOfMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }
    return DayNumber(year, month, day) * kDay + hour * kHour + minute * kMinute + second * kSecond +
           Number(text, 20, 3);
}

std::optional<Milliseconds> ParseMoment(const std::string& text, Milliseconds now)
{
    if (const auto age = ParseAge(text)) {
        return now - *age;
    }
    // What is left out at the end is 0: the day, the hour and minute, the second, the fraction.
    std::string whole = text;
    if (!whole.empty() && whole.back() == 'Z') {
        whole.pop_back();
    }
    if (whole.size() > 10 && whole[10] == ' ') {
        whole[10] = 'T';
    }
    if (whole.size() == 10 || whole.size() == 16 || whole.size() == 19 || whole.size() == 23) {
        whole += std::string("0000-00-00T00:00:00.000Z").substr(whole.size());
    }
    return ParseTimeStamp(whole);
}

std::string FormatTimeStamp(Milliseconds time)
{
    const std::int64_t days = (time >= 0 ? time : time - kDay + 1) / kDay;
    const Date date = DateOf(days);
    const Milliseconds rest = time - days * kDay;
    return string_format(
        "%04lld-%02lld-%02lldT%02lld:%02lld:%02lld.%03lldZ", static_cast<long long>(date.year),
        static_cast<long long>(date.month), static_cast<long long>(date.day),
        static_cast<long long>(rest / kHour), static_cast<long long>(rest / kMinute % 60),
        static_cast<long long>(rest / kSecond % 60), static_cast<long long>(rest % kSecond));
}

std::string FormatForPeople(Milliseconds time)
{
    std::string text = FormatTimeStamp(time);
    text.resize(text.size() - 5);
    text[10] = ' ';
    return text;
}

std::string FormatRange(Milliseconds first, Milliseconds last)
{
    constexpr std::size_t kDateSize = 10;
    const std::string from = FormatForPeople(first);
    std::string to = FormatForPeople(last);
    if (from.compare(0, kDateSize, to, 0, kDateSize) == 0) {
        to.erase(0, kDateSize + 1);
    }
    return from + " to " + to + " UTC";
}

std::string FormatDuration(Milliseconds duration)
{
    const auto number = [](Milliseconds value) { return static_cast<long long>(value); };
    if (duration < kMinute) {
        return string_format(duration < kSecond ? "%.2f s" : "%.1f s",
                             static_cast<double>(duration) / 1000);
    }
    if (duration < kHour) {
        return string_format("%lld min %lld s", number(duration / kMinute),
                             number(duration / kSecond % 60));
    }
    if (duration < kDay) {
        return string_format("%lld h %lld min", number(duration / kHour),
                             number(duration / kMinute % 60));
    }
    return string_format("%lld d %lld h", number(duration / kDay), number(duration / kHour % 24));
}

}  // namespace launchlist
