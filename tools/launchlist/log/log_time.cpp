#include "tools/launchlist/log/log_time.h"

#include <time.h>

#include <cstdlib>

#include "qv7log/calendar.h"
#include "qv7log/record_format.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr Milliseconds kSecond = 1000;
constexpr Milliseconds kMinute = 60 * kSecond;
constexpr Milliseconds kHour = 60 * kMinute;
constexpr Milliseconds kDay = 24 * kHour;

int Number(std::string_view text, const qv7log::TimestampField& field)
{
    int number = 0;
    for (const char c : text.substr(field.at, field.size)) {
        number = number * 10 + (c - '0');
    }
    return number;
}

bool HasForm(std::string_view text)
{
    if (text.size() != qv7log::kTimestampSize) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!qv7log::MatchesTimestamp(text[i], i)) {
            return false;
        }
    }
    return true;
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

// How far the clocks of this machine are ahead of UTC at `time`.
Milliseconds OffsetAt(Milliseconds time)
{
    const auto seconds = static_cast<time_t>((time >= 0 ? time : time - kSecond + 1) / kSecond);
    tm local = {};
    if (localtime_r(&seconds, &local) == nullptr) {
        return 0;
    }
    const std::int64_t days =
        qv7log::DaysSince1970({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday});
    return days * kDay + local.tm_hour * kHour + local.tm_min * kMinute + local.tm_sec * kSecond -
           static_cast<Milliseconds>(seconds) * kSecond;
}

// The time at which the clocks of this machine show what UTC shows at `shown`. Of a time that the
// clocks skip or repeat, one of the two.
Milliseconds FromLocal(Milliseconds shown)
{
    const Milliseconds near = shown - OffsetAt(shown);
    return shown - OffsetAt(near);
}

}  // namespace

std::optional<Milliseconds> ParseTimeStamp(std::string_view text)
{
    if (!HasForm(text)) {
        return std::nullopt;
    }
    const int year = Number(text, qv7log::kYearField);
    const int month = Number(text, qv7log::kMonthField);
    const int day = Number(text, qv7log::kDayField);
    const int hour = Number(text, qv7log::kHourField);
    const int minute = Number(text, qv7log::kMinuteField);
    const int second = Number(text, qv7log::kSecondField);
    if (month < 1 || month > 12 || day < 1 || day > qv7log::DaysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }
    return qv7log::DaysSince1970({year, month, day}) * kDay + hour * kHour + minute * kMinute +
           second * kSecond + Number(text, qv7log::kMillisecondField);
}

std::optional<Milliseconds> ParseMoment(const std::string& text, Milliseconds now, Zone zone)
{
    if (const auto age = ParseAge(text)) {
        return now - *age;
    }
    // Missing parts at the end are 0: the time of day, the seconds, the fraction.
    std::string whole = text;
    if (!whole.empty() && whole.back() == 'Z') {
        whole.pop_back();
        zone = Zone::kUtc;
    }
    if ((whole.size() == 5 || whole.size() == 8) && whole[2] == ':') {
        whole.insert(0, WallTimeOf(now, zone).date + "T");
    }
    if (whole.size() > 10 && whole[10] == ' ') {
        whole[10] = 'T';
    }
    if (whole.size() == 10 || whole.size() == 16 || whole.size() == 19 || whole.size() == 23) {
        whole += qv7log::kTimestampForm.substr(whole.size());
    }
    const std::optional<Milliseconds> time = ParseTimeStamp(whole);
    return time && zone == Zone::kLocal ? FromLocal(*time) : time;
}

std::string FormatTimeStamp(Milliseconds time)
{
    const std::int64_t days = (time >= 0 ? time : time - kDay + 1) / kDay;
    const qv7log::Date date = qv7log::DateOfDay(days);
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

WallTime WallTimeOf(Milliseconds time, Zone zone)
{
    constexpr std::size_t kDateSize = 10;
    const Milliseconds offset = zone == Zone::kLocal ? OffsetAt(time) : 0;
    const std::string text = FormatForPeople(time + offset);
    WallTime shown = {text.substr(0, kDateSize), text.substr(kDateSize + 1), "UTC"};
    if (zone == Zone::kLocal) {
        const Milliseconds minutes = std::abs(offset) / kMinute;
        shown.zone += string_format("%c%02d:%02d", offset < 0 ? '-' : '+',
                                    static_cast<int>(minutes / 60), static_cast<int>(minutes % 60));
    }
    return shown;
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
