#include "tools/launchlist/status/launcher_program.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "config/ini_profile.h"
#include "config/locations.h"
#include "logging/log_path.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr char kProgram[] = "/Contents/MacOS/launcher";
constexpr char kProgramOfBundle[] = "/Kestrane.app/Contents/MacOS/launcher";
constexpr char kProfile[] = "/Contents/Frameworks/qv7api.ini";

std::string ProfileOf(const std::string& executable)
{
    return executable.substr(0, executable.size() - (sizeof kProgram - 1)) + kProfile;
}

}  // namespace

bool IsLauncher(const Executable& executable)
{
    if (!ends_with(executable.path, kProgram)) {
        return false;
    }
    return access(ProfileOf(executable.path).c_str(), F_OK) == 0 ||
           (executable.is_deleted && ends_with(executable.path, kProgramOfBundle));
}

LauncherFiles FilesOf(const std::string& executable)
{
    const std::string profile = ProfileOf(executable);
    if (access(profile.c_str(), F_OK) != 0) {
        return {GetLogPath(), GetLevelPath()};
    }
    char name[1024] = {};
    GetPrivateProfileString("SDK", "NAME", "", name, sizeof name, profile);
    return {GetHomePath() + "/Library/Logs/" + name + "/qv7log",
            GetAppDataPath() + "/" + name + "/log.ini"};
}

std::string AbsolutePath(const std::string& directory, const std::string& path)
{
    std::string whole = path;
    if (path.empty() || path[0] != '/') {
        if (directory.empty()) {
            return path;
        }
        whole = directory + "/" + path;
    }
    std::string result;
    for (std::size_t at = 0; at < whole.size();) {
        const std::size_t end = std::min(whole.find('/', at), whole.size());
        const std::string part = whole.substr(at, end - at);
        if (!part.empty() && part != ".") {
            result += "/" + part;
        }
        at = end + 1;
    }
    return result.empty() ? "/" : result;
}

std::string RealPath(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr),
                                                          std::free);
    return resolved == nullptr ? "" : resolved.get();
}

}  // namespace launchlist
