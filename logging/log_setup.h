// Setting up the program's log: its level and the global `logger`.
//
// Errors:  none is reported; a log that cannot be set up leaves `logger` null.
// Threads: for the main thread, before any other exists.
#pragma once

#include <string>

#include "logging/log.h"
#include "logging/log_path.h"

// Sets up the logging library at GetLogPath() with GetLogLevel() and stores its log in `logger`.
// Where the library fails, writes a system event that names the program `name` and leaves `logger`
// null. Called once.
void InitLog(std::string name);

// "LEVEL" of section "LOG" in the level file; ERROR without one.
LOGLEVEL GetLogLevel();

// The level that `text` names, compared whole and with regard to case; ERROR for any other text.
LOGLEVEL StringToLogLevel(std::string text);
