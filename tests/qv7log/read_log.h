// What the tests of the log share: a call with "...", and the log read back.
#pragma once

#include <string>
#include <vector>

#include "qv7log/include/qv7log.h"
#include "qv7log/record_reader.h"
#include "tests/support/temp_folder.h"

__attribute__((format(printf, 3, 4))) void Log(ILog* log, LOGLEVEL level, const char* format, ...);

// Keeps `log`, which the library never destroys, from being taken for a leak. Returns it.
ILog* KeepReachable(ILog* log);

// Starts a log at `path` and gives its ILog; null where one of the two calls fails.
ILog* StartLog(const std::string& path, LOGLEVEL threshold = LOGLEVEL_VERBOSE);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);
bool Exists(const std::string& path);

struct Content
{
    std::vector<qv7log::Record> records;
    std::vector<std::string> others;  // entries that are no records
};

// Adds the entries of the file at `path` to `content`.
void ReadInto(Content& content, const std::string& path);

// The old files of the log at `path`, the oldest first. There may be gaps in their numbers.
std::vector<std::string> OldFiles(const std::string& path);

// The whole log at `path`, old files first.
Content ReadLog(const std::string& path);

// The texts of the whole log at `path`, old files first; of what is no record, "!" and its raw
// form.
std::vector<std::string> Texts(const std::string& path);
