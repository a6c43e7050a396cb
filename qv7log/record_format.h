// The fixed parts of a record, for the code that writes records and the code that reads them.
// docs/log-format.md has the grammar.
#pragma once

#include <cstddef>
#include <string_view>

namespace qv7log {

// A timestamp is UTC with milliseconds; a 0 stands for any digit.
constexpr std::string_view kTimestampForm = "0000-00-00T00:00:00.000Z";
constexpr std::size_t kTimestampSize = kTimestampForm.size();

// Whether `c` may be at the index `at` of a timestamp.
constexpr bool MatchesTimestamp(char c, std::size_t at)
{
    return kTimestampForm[at] == '0' ? c >= '0' && c <= '9' : c == kTimestampForm[at];
}

// A field of a timestamp: the offset of its first digit and the number of its digits.
struct TimestampField
{
    std::size_t at;
    std::size_t size;
};
constexpr TimestampField kYearField = {0, 4};
constexpr TimestampField kMonthField = {5, 2};
constexpr TimestampField kDayField = {8, 2};
constexpr TimestampField kHourField = {11, 2};
constexpr TimestampField kMinuteField = {14, 2};
constexpr TimestampField kSecondField = {17, 2};
constexpr TimestampField kMillisecondField = {20, 3};

// The level is padded with blanks to this width; a longer number is written whole.
constexpr std::size_t kLevelWidth = 8;

// The mark at the end of a text whose last bytes were cut off: "\<123 bytes cut>".
constexpr std::string_view kCutMarkBegin = "\\<";
constexpr std::string_view kCutMarkEnd = " bytes cut>";

}  // namespace qv7log
