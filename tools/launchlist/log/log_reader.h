// The files of a log, the old ones that rotation has renamed included.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "qv7log/record_reader.h"

namespace launchlist {

struct LogFile
{
    std::string path;
    std::string error;  // Why it could not be read; "" if it could.
    std::size_t size = 0;
};

// A piece of a log that is no record.
struct Unread
{
    std::string path;
    std::size_t line = 0;
    std::string_view text;
};

// Reads the logs at `paths`, each with its old files, from the oldest entry to the newest, and
// calls one of the two functions for every entry. No file is read twice, also when it is named
// twice or renamed in the meantime. Gives the files in the order in which they were read.
std::vector<LogFile> ReadLogs(const std::vector<std::string>& paths,
                              const std::function<void(const qv7log::Record&)>& on_record,
                              const std::function<void(const Unread&)>& on_unread);

}  // namespace launchlist
