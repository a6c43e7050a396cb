// Where the product lives on this machine.
//
// Every function computes its answer afresh from the executable's path, the password database and
// the environment; none creates a folder or looks whether one is there (GetAppPath alone resolves
// its answer if it can).
//
// Errors:  none is reported; what is unknown is the empty text, or leaves its part of a path empty.
// Threads: not safe at once on several threads, since getpwuid keeps one static record.
// Text:    8-bit, as the system gives it.
#pragma once

#include <string>

// The bundle identifier of the Finder Sync extension. The system names the extension's sandbox
// container after it, so it is part of the home folder that the extension sees.
inline constexpr char FINDER_SYNC_BUNDLE_ID[] = "com.kestrane.desktop.KestraneFinderSync";

// The bundle's Frameworks folder without a trailing "/", resolved if it exists. An executable path
// of 1,024 bytes or more gives "".
std::string GetAppPath();

// Whether the running executable is the Finder Sync extension: its path ends with
// "KestraneFinderSync", compared with regard to case.
bool IsFinderSync();

// The real user's home folder from the password database; else "HOME" of the environment; else "".
std::string GetHomePath();

// The user's "Library/Application Support" folder. In the extension's sandbox it leads back out of
// the container by "/../../../..", which stays in the text.
std::string GetAppDataPath();

// "NAME" of section "SDK" in the Frameworks folder's qv7api.ini; "" when it is not there, empty, or
// longer than 1,023 bytes.
std::string GetSDKName();

// "/Volumes/", `name`, "_" and the login name, one after the other.
std::string GetOSXMountPath(std::string name);

// The folder of the executable, not resolved. A path of 1,025 bytes or more gives "".
std::string GetCurrentPath();

// The real user's login name; "" without an entry in the password database.
std::string GetUserName();
