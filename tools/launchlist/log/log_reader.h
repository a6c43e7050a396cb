// Reading the files of a log, including the old ones that rotation has renamed.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qv7log/record_reader.h"

namespace launchlist {

using FileId = std::pair<dev_t, ino_t>;

struct LogFile
{
    std::string path;
    std::string error;  // Why it could not be read; "" if it could.
    std::size_t size = 0;
    bool has_id = false;  // Whether the file exists, even if it could not be opened.
    FileId id;            // Only with has_id.
};

// A piece of a log that is not a record.
struct UnparsedEntry
{
    std::string path;
    std::size_t line = 0;
    std::string_view text;
};

struct LogSink
{
    std::function<void()> on_file;  // Before the entries of a file.
    // The second argument is the record as it is in the log, without its line end.
    std::function<void(const qv7log::Record&, std::string_view)> on_record;
    std::function<void(const UnparsedEntry&)> on_unparsed;
    // A file cannot be read. Called where its entries are missing.
    std::function<void(const std::string& path, const std::string& error)> on_unreadable;
};

// Passes the entries at the beginning of `bytes`, which are from the file `path`, to `sink` and
// removes them from `bytes`. `line` is the number of the first line, and receives that of the next
// one. Without `is_whole`, an entry at the end that has no line end is kept, because its writer may
// complete it.
void PassEntries(const std::string& path, bool is_whole, std::string_view& bytes, std::size_t& line,
                 const LogSink& sink);

// More old files than any log keeps.
constexpr int kMaxOldFiles = 99;

// Reads the logs at `paths`, each with its old files, from the oldest entry to the newest, and
// passes each entry to `sink`. The path "-" is standard input. A file may be compressed by gzip,
// and its lines may end in CRLF. A file that is named twice, or renamed in the meantime, is read
// once. Returns the files in the order in which they were read.
std::vector<LogFile> ReadLogs(const std::vector<std::string>& paths, const LogSink& sink);

}  // namespace launchlist
