// Writing a report to a file without destroying anything else.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/launchlist/log/log_reader.h"

namespace launchlist {

// Atomically replaces the file at `path` by one that contains `page`. Its mode is 0600, because it
// shows what the log contains. Fails without a change if `path` is a symbolic link, is not a
// regular file, or is one of `inputs`. Without `is_forced` it also fails if `path` is a file that
// is not a page of ours. On false, `error` says why.
bool WritePage(const std::string& path, std::string_view page, const std::vector<LogFile>& inputs,
               bool is_forced, std::string& error);

// The same for a trace.
bool WriteTrace(const std::string& path, std::string_view trace, const std::vector<LogFile>& inputs,
                bool is_forced, std::string& error);

}  // namespace launchlist
