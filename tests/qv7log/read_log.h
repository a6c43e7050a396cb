// Shared by the tests of the log: a variadic log call, and functions that read a log.
#pragma once

#include <string>
#include <vector>

#include "qv7log/include/qv7log.h"
#include "qv7log/record_reader.h"
#include "tests/support/temp_directory.h"

__attribute__((format(printf, 3, 4))) void Log(ILog* log, LOGLEVEL level, const char* format, ...);

// Returns `log`. The library never destroys it; keeping it reachable prevents leak reports.
ILog* KeepReachable(ILog* log);

// Calls InitLogger and GetLogger for a log at `path`. Returns null if one of them fails.
ILog* StartLog(const std::string& path, LOGLEVEL threshold = LOGLEVEL_VERBOSE);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);
bool Exists(const std::string& path);

struct Content
{
    std::vector<qv7log::Record> records;
    std::vector<std::string> others;  // entries that are not records
};

// Adds the entries of the file at `path` to `content`.
void ReadInto(Content& content, const std::string& path);

// The paths of the old files of the log at `path`, the oldest first.
std::vector<std::string> OldFiles(const std::string& path);

// Reads the log at `path` with its old files, the oldest first.
Content ReadLog(const std::string& path);

// The texts of the log at `path` with its old files, the oldest first. An entry that is not a
// record becomes "!" and its raw bytes, after the records.
std::vector<std::string> Texts(const std::string& path);
