#include "qv7log/record_reader.h"

#include <charconv>

#include "qv7log/entry_end.h"
#include "qv7log/record_format.h"
#include "qv7log/timestamp.h"

namespace qv7log {
namespace {

// Removes `prefix` from the front of `text`. Returns false if `text` does not begin with it.
bool Take(std::string_view& text, std::string_view prefix)
{
    if (text.substr(0, prefix.size()) != prefix) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

// Removes everything up to and including the first `end` from the front of `text`. `field` gets
// what precedes `end`. Returns false if `text` contains no `end`.
bool TakeUntil(std::string_view& text, char end, std::string_view& field)
{
    const std::size_t at = text.find(end);
    if (at == std::string_view::npos) {
        return false;
    }
    field = text.substr(0, at);
    text.remove_prefix(at + 1);
    return true;
}

template <typename Number>
bool ParseNumber(std::string_view text, Number& number, int base = 10)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, base);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

bool TakeLevel(std::string_view& line, std::string& level)
{
    std::string_view field;
    if (!TakeUntil(line, ' ', field) || field.empty()) {
        return false;
    }
    level = field;
    const std::size_t padding = field.size() < kLevelWidth ? kLevelWidth - field.size() : 0;
    return Take(line, std::string(padding, ' '));
}

// Removes the mark of a cut text from the end of `text` and returns its number; 0 without a mark.
std::uint64_t TakeCutMark(std::string_view& text)
{
    const std::size_t at = text.rfind(kCutMarkBegin);
    if (at == std::string_view::npos) {
        return 0;
    }
    // After an odd number of backslashes, this one completes the escape of a backslash.
    const std::size_t backslashes = at - text.find_last_not_of('\\', at);
    if (backslashes % 2 == 0) {
        return 0;
    }
    std::string_view mark = text.substr(at + kCutMarkBegin.size());
    std::string_view digits;
    std::uint64_t bytes = 0;
    if (!TakeUntil(mark, kCutMarkEnd[0], digits) || !ParseNumber(digits, bytes) ||
        mark != kCutMarkEnd.substr(1)) {
        return 0;
    }
    text = text.substr(0, at);
    return bytes;
}

void AppendUtf8(unsigned code, std::string& text)
{
    if (code >= 0x800) {
        text += static_cast<char>(0xE0 | code >> 12);
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    } else {
        text += static_cast<char>(0xC0 | code >> 6);
    }
    text += static_cast<char>(0x80 | (code & 0x3F));
}

// Removes an escape, whose backslash is already gone, from the front of `escaped` and appends its
// meaning to `text`.
bool TakeEscape(std::string_view& escaped, std::string& text)
{
    if (escaped.empty()) {
        return false;
    }
    const char kind = escaped.front();
    escaped.remove_prefix(1);
    switch (kind) {
        case 'n':
            text += '\n';
            return true;
        case 'r':
            text += '\r';
            return true;
        case 't':
            text += '\t';
            return true;
        case '\\':
        case 'Z':
            text += kind;
            return true;
        case 'x':
        case 'u':
            break;
        default:
            return false;
    }
    const std::size_t digits = kind == 'x' ? 2 : 4;
    unsigned code = 0;
    if (escaped.size() < digits || !ParseNumber(escaped.substr(0, digits), code, 16)) {
        return false;
    }
    escaped.remove_prefix(digits);
    if (kind == 'x') {
        text += static_cast<char>(code);
        return true;
    }
    AppendUtf8(code, text);
    return code >= 0x80;
}

}  // namespace

bool NextEntry(std::string_view& log, Entry& entry)
{
    if (log.empty()) {
        return false;
    }
    const auto size = static_cast<std::size_t>(FindEntryEnd(log.begin(), log.end()) - log.begin());
    entry.raw = log.substr(0, size);
    const bool has_line_end = size < log.size() && log[size] == '\n';
    entry.is_record = has_line_end && ParseRecord(entry.raw, entry.record);
    log.remove_prefix(size + (has_line_end ? 1 : 0));
    return true;
}

bool ParseRecord(std::string_view line, Record& record)
{
    if (line.size() < kTimestampSize || !IsTimestamp(line.data())) {
        return false;
    }
    record.time = line.substr(0, kTimestampSize);
    line.remove_prefix(kTimestampSize);
    std::string_view name;
    std::string_view process;
    if (!Take(line, " ") || !TakeLevel(line, record.level) || !TakeUntil(line, '[', name) ||
        !TakeUntil(line, ']', process) || !Take(line, " ")) {
        return false;
    }
    record.cut = TakeCutMark(line);
    return Unescape(name, record.name) && ParseNumber(process, record.process) &&
           Unescape(line, record.text);
}

bool Unescape(std::string_view escaped, std::string& text)
{
    text.clear();
    std::string_view plain;
    while (TakeUntil(escaped, '\\', plain)) {
        text += plain;
        if (!TakeEscape(escaped, text)) {
            return false;
        }
    }
    text += escaped;
    return true;
}

}  // namespace qv7log
