#include "config/locations.h"

#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "config/executable_path.h"
#include "config/ini_profile.h"
#include "util/string_util.h"

namespace {

constexpr std::size_t kPathSize = 1024;
constexpr char kFinderSyncName[] = "KestraneFinderSync";

// The executable's path; "" if it needs more than `Size` bytes with its NUL.
template <std::size_t Size>
std::string ExecutablePath()
{
    char path[Size] = {};
    return GetExecutablePath(path, Size) ? path : "";
}

// `path` resolved. It stays unchanged if that fails, if it has more than kPathSize bytes, or if the
// result has kPathSize bytes or more. macOS itself rejects a longer input; the check makes both
// systems agree. realpath allocates the result, because some platforms abort on a buffer smaller
// than PATH_MAX.
std::string Resolve(const std::string& path)
{
    if (path.size() > kPathSize) {
        return path;
    }
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr),
                                                          std::free);
    if (resolved == nullptr) {
        return path;
    }
    const std::string result = resolved.get();
    return result.size() < kPathSize ? result : path;
}

}  // namespace

std::string GetAppPath()
{
    std::string path = ExecutablePath<kPathSize>();
    if (path.empty()) {
        return "";
    }
    path = path.substr(0, path.rfind('/'));
    // The extension's executable is in Contents/PlugIns/<name>.appex/Contents/MacOS of the bundle.
    path += IsFinderSync() ? "/../../../../Frameworks" : "/../Frameworks";
    return Resolve(path);
}

bool IsFinderSync()
{
    return ends_with(ExecutablePath<kPathSize>(), kFinderSyncName);
}

std::string GetHomePath()
{
    if (const passwd* user = getpwuid(getuid())) {
        return user->pw_dir;
    }
    const char* home = std::getenv("HOME");
    return home != nullptr ? home : "";
}

std::string GetAppDataPath()
{
    std::string path = GetHomePath();
    if (IsFinderSync() && path.find(FINDER_SYNC_BUNDLE_ID) != std::string::npos) {
        path += "/../../../..";
    }
    return path + "/Library/Application Support";
}

std::string GetSDKName()
{
    char name[1024] = {};
    GetPrivateProfileString("SDK", "NAME", "", name, sizeof name, GetAppPath() + "/qv7api.ini");
    return name;
}

std::string GetOSXMountPath(std::string name)
{
    return "/Volumes/" + name + "_" + GetUserName();
}

std::string GetCurrentPath()
{
    const std::string path = ExecutablePath<kPathSize + 1>();
    const std::size_t slash = path.rfind('/');
    return slash != std::string::npos ? path.substr(0, slash) : "";
}

std::string GetUserName()
{
    const passwd* user = getpwuid(getuid());
    return user != nullptr ? user->pw_name : "";
}
