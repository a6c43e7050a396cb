#include "logging/log_path.h"

#include "config/locations.h"

std::string GetLogPath()
{
    const std::string sdk_name = GetSDKName();
    return GetHomePath() + "/Library/Logs/" + sdk_name + "/qv7log";
}

std::string GetLevelPath()
{
    const std::string sdk_name = GetSDKName();
    return GetAppDataPath() + "/" + sdk_name + "/log.ini";
}
