// The paths of the log and of its level file. Separate from the set-up of the log, so that programs
// that only read these files need no logging library.
//
// Threads: one thread at a time, as for config/locations.h.
#pragma once

#include <string>

// The home directory, "/Library/Logs/", the SDK name and "/qv7log". An unknown home directory or
// SDK name is left empty in the path.
std::string GetLogPath();

// The file that sets the log's level: log.ini in the product's directory below GetAppDataPath().
std::string GetLevelPath();
