#include "logging/log_setup.h"

#include "config/ini_profile.h"
#include "config/locations.h"
#include "logging/event_log.h"

namespace {

struct LevelName
{
    const char* name;
    LOGLEVEL level;
};

constexpr LevelName kLevelNames[] = {
    {"DEBUG", LOGLEVEL_DEBUG}, {"MESSAGE", LOGLEVEL_MESSAGE},   {"WARNING", LOGLEVEL_WARNING},
    {"ERROR", LOGLEVEL_ERROR}, {"CRITICAL", LOGLEVEL_CRITICAL}, {"VERBOSE", LOGLEVEL_VERBOSE},
};

}  // namespace

void InitLog(std::string name)
{
    const LOGLEVEL level = GetLogLevel();
    const std::string path = GetLogPath();
    if (InitLogger(path.c_str()) != 0) {
        WriteEvent("Morvel Launcher for " + name, kEventError, "Failed to initialize logger");
        return;
    }
    ILog* log = nullptr;
    GetLogger(LOGKIND_FILE, "launcher", level, &log);
    logger = log;
}

LOGLEVEL GetLogLevel()
{
    const std::string file = GetLevelPath();
    char text[1024] = {};
    // Unreachable while the default fits the buffer; the message is part of the function's contract
    // in case the reader's rules change.
    if (GetPrivateProfileString("LOG", "LEVEL", "ERROR", text, sizeof text, file) == 0) {
        __LOG__A(logger, LOGLEVEL_ERROR, "[SERVICE   ] Failed to get log level");
    }
    return StringToLogLevel(text);
}

LOGLEVEL StringToLogLevel(std::string text)
{
    for (const LevelName& entry : kLevelNames) {
        if (text == entry.name) {
            return entry.level;
        }
    }
    return LOGLEVEL_ERROR;
}
