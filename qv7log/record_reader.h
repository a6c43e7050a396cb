// Reads a log: the counterpart of record.h, for tools and tests. docs/log-format.md has the
// grammar. The log library itself does not contain this code.
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
    std::uint64_t cut = 0;  // the number of bytes cut off the end of the text
};

// A piece of a log: a record or something else. Something else is the beginning of a record that
// did not fit on the disk or whose writer was killed, or text that another program wrote.
struct Entry
{
    bool is_record = false;
    Record record;         // valid only if is_record
    std::string_view raw;  // the piece as it is in the log, without the newline
};

// Removes the first entry from the front of `log`. Returns false if `log` is empty. An entry
// without a line end is never a record, because its writer did not complete it.
bool NextEntry(std::string_view& log, Entry& entry);

// Parses `line`, which must not contain a newline, as a record. On failure the content of `record`
// is unspecified.
bool ParseRecord(std::string_view line, Record& record);

// Restores what PutText or PutName escaped. Returns false, with unspecified content in `text`, if
// `escaped` cannot have been written by them.
bool Unescape(std::string_view escaped, std::string& text);

}  // namespace qv7log
