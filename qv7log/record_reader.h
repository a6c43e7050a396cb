// Reading a log back: the counterpart of record.h, for tools and tests. docs/log-format.md has the
// grammar. The log library itself does not contain it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv7log {

struct Record
{
    std::string time;   // "2026-11-21T02:26:11.123Z"
    std::string level;  // "ERROR"; a level without a name is a number
    std::string name;
    std::int64_t process = 0;
    std::string text;
    std::uint64_t cut = 0;  // so many bytes are missing at the end of the text
};

// One piece of a log: a record, or something else (the beginning of a record that did not fit on
// the disk or whose writer was killed, a foreign line).
struct Entry
{
    bool is_record = false;
    Record record;         // only of a record
    std::string_view raw;  // as it stands in `log`, without a newline
};

// Takes the first entry off the front of `log`; false when none is left. What stands without a line
// end is never a record: its writer did not finish it.
bool NextEntry(std::string_view& log, Entry& entry);

// Reads one record from `line`, which has no newline; false, and `record` in any state, if it is
// not one.
bool ParseRecord(std::string_view line, Record& record);

// Puts the text that PutText or PutName escaped into `text`; false, and `text` in any state, if
// `escaped` is nothing that they write.
bool Unescape(std::string_view escaped, std::string& text);

}  // namespace qv7log
