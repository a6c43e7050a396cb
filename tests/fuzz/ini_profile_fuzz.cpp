// Compares both functions of the profile reader with one that first parses the file and then looks
// up the key.
// Input: a line each for section, key, default and buffer size, then the file.
#include <climits>
#include <optional>
#include <vector>

#include "config/ini_profile.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/temp_directory.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::size_t kLongestLine = 2047;

bool IsBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string Trimmed(const std::string& text)
{
    std::size_t start = 0;
    std::size_t end = text.size();
    while (start < end && IsBlank(text[start])) {
        ++start;
    }
    while (end > start && IsBlank(text[end - 1])) {
        --end;
    }
    return text.substr(start, end - start);
}

std::string Lowered(std::string text)
{
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

// The lines of the file, trimmed. A long line counts as several; a NUL ends a line's visible part.
Lines LinesOf(const std::string& file)
{
    Lines lines;
    std::string line;
    for (const char c : file) {
        line += c;
        if (c == '\n' || line.size() == kLongestLine) {
            lines.push_back(Trimmed(UpToNul(line)));
            line.clear();
        }
    }
    lines.push_back(Trimmed(UpToNul(line)));
    return lines;
}

bool IsHeader(const std::string& line, const std::string& section)
{
    return line.size() >= 3 && line[0] == '[' && line[line.size() - 1] == ']' &&
           Lowered(Trimmed(line.substr(1, line.size() - 2))) == Lowered(Trimmed(section));
}

// The lines that follow the first header of `section`, up to the next line that starts with "[".
Lines SectionOf(const Lines& lines, const std::string& section)
{
    Lines found;
    bool inside = false;
    for (const std::string& line : lines) {
        if (inside && !line.empty() && line[0] == '[') {
            break;
        }
        if (inside) {
            found.push_back(line);
        }
        inside = inside || IsHeader(line, section);
    }
    return found;
}

// The value of the first line "key=value" with any text after the first "=": the text between that
// "=" and the next.
std::optional<std::string> ValueOf(const Lines& section, const std::string& key)
{
    for (const std::string& line : section) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || equals + 1 == line.size() ||
            Lowered(line.substr(0, equals)) != Lowered(key)) {
            continue;
        }
        const std::string value = line.substr(equals + 1);
        return value.substr(0, value.find('='));
    }
    return std::nullopt;
}

// The number at the start, limited to the range of a long.
std::uint32_t NumberOf(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i])) {
        ++i;
    }
    const bool minus = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
        ++i;
    }
    const unsigned long limit = LONG_MAX + (minus ? 1UL : 0UL);
    unsigned long number = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const auto digit = static_cast<unsigned long>(text[i] - '0');
        number = number > (limit - digit) / 10 ? limit : number * 10 + digit;
    }
    return static_cast<std::uint32_t>(minus ? 0 - number : number);
}

// The expected result of a call, and the expected contents of its buffer.
struct Expected
{
    std::uint64_t result;
    std::string buffer;
};

Expected ExpectedString(const std::optional<std::string>& value, const std::string& default_value,
                        const std::string& before, std::int32_t size)
{
    Expected expected{0, before};
    const auto put = [&](const std::string& text) {
        if (size >= 0 && text.size() >= static_cast<std::size_t>(size)) {
            return;
        }
        expected.buffer.replace(0, text.size() + 1, text.c_str(), text.size() + 1);
        expected.result = text.size();
    };
    if (size != 0 && value) {
        put(*value);
    }
    if (size != 0 && expected.result == 0) {
        put(default_value);
    }
    return expected;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TempDirectory directory;
    FuzzInput input(data, size);
    const std::string section = input.TakeLine();
    const std::string key = input.TakeLine();
    const std::string default_value = input.TakeLine();
    // Begins at -1, which means no limit.
    const auto buffer_size = static_cast<std::int32_t>(input.TakeNumber(40)) - 1;
    const std::string content = input.Rest();
    const std::string file = directory.Write("a.ini", content);

    const std::optional<std::string> value = ValueOf(SectionOf(LinesOf(content), section), key);
    const std::string before(size + 64, '#');
    const Expected expected = ExpectedString(value, default_value, before, buffer_size);
    std::string buffer = before;
    const std::uint64_t result =
        GetPrivateProfileString(section, key, default_value, buffer.data(), buffer_size, file);
    Require(result == expected.result, "the count is the reference's");
    Require(buffer == expected.buffer, "the buffer is the reference's, and untouched behind it");

    Require(GetPrivateProfileInt(section, key, 7, file) == (value ? NumberOf(*value) : 0),
            "the number is the reference's");
    return 0;
}
