// Where the log and its level file are. Apart from the set-up, so that programs which only read
// them need no logging library.
//
// Threads: as the functions of config/locations.h.
#pragma once

#include <string>

// The home folder, "/Library/Logs/", the SDK name and "/qv7log". An unknown home or SDK name simply
// leaves its place empty.
std::string GetLogPath();

// The file that sets the log's level: log.ini in the product's folder under GetAppDataPath().
std::string GetLevelPath();
