// Setting up the program's log: where it goes, at which level, and the global `logger`.
//
// Errors:  none is reported; a log that cannot be set up leaves `logger` null.
// Threads: for the main thread, before any other exists.
#pragma once

#include <string>

#include "logging/log.h"

// Sets up the logging library at GetLogPath() with GetLogLevel() and stores its log in `logger`.
// Where the library fails, writes a system event that names the program `name` and leaves `logger`
// null. Called once.
void InitLog(std::string name);

// The home folder, "/Library/Logs/", the SDK name and "/qv7log". An unknown home or SDK name simply
// leaves its place empty.
std::string GetLogPath();

// The file that sets the log's level: log.ini in the product's folder under GetAppDataPath().
std::string GetLevelPath();

// "LEVEL" of section "LOG" in the level file; ERROR without one.
LOGLEVEL GetLogLevel();

// The level that `text` names, compared whole and with regard to case; ERROR for any other text.
LOGLEVEL StringToLogLevel(std::string text);
