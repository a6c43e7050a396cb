// Sets up the program's log: its level and the global `logger`.
//
// Errors:  none is reported; if the log cannot be set up, `logger` stays null.
// Threads: must be called on the main thread, before any other thread exists.
#pragma once

#include <string>

#include "logging/log.h"
#include "logging/log_path.h"

// Initialises the logging library with GetLogPath() and GetLogLevel() and stores its log in
// `logger`. If the library fails, writes a system event that names the component `name` and leaves
// `logger` null. Must be called once.
void InitLog(std::string name);

// The level that "LEVEL" of section "LOG" in the level file names; ERROR if there is none.
LOGLEVEL GetLogLevel();

// The level named exactly `text` (case-sensitive); ERROR for any other text.
LOGLEVEL StringToLogLevel(std::string text);
