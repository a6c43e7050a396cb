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
    std::function<void(const qv7log::Record&)> on_record;
    std::function<void(const UnparsedEntry&)> on_unparsed;
};

// Reads the logs at `paths`, each with its old files, from the oldest entry to the newest, and
// passes each entry to `sink`. The path "-" is standard input. A file may be compressed by gzip,
// and its lines may end in CRLF. A file that is named twice, or renamed in the meantime, is read
// once. Returns the files in the order in which they were read.
std::vector<LogFile> ReadLogs(const std::vector<std::string>& paths, const LogSink& sink);

}  // namespace launchlist
