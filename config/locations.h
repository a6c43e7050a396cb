// Where the product's files are on this machine.
//
// Every call computes its result from the executable's path, the password database and the
// environment. No function creates a directory or checks that one exists, except that GetAppPath
// resolves its result if it can.
//
// Errors:  none is reported; an unknown part is empty, alone or within a path.
// Threads: one thread at a time, since getpwuid returns a static record.
// Text:    8-bit, as the system gives it.
#pragma once

#include <string>

// The bundle identifier of the Finder Sync extension. The system names the extension's sandbox
// container after it, so it is part of the home directory that the extension sees.
inline constexpr char FINDER_SYNC_BUNDLE_ID[] = "com.kestrane.desktop.KestraneFinderSync";

// The bundle's Frameworks folder without a trailing "/", resolved if it exists. An executable path
// of 1,024 bytes or more gives "".
std::string GetAppPath();

// Whether the running executable is the Finder Sync extension: its path ends with
// "KestraneFinderSync" (case-sensitive).
bool IsFinderSync();

// The real user's home directory from the password database; without an entry there, the
// environment variable "HOME"; without that, "".
std::string GetHomePath();

// The user's "Library/Application Support" directory. In the extension's sandbox the path leads out
// of the container by "/../../../..", which is not resolved.
std::string GetAppDataPath();

// "NAME" of section "SDK" in qv7api.ini of the Frameworks folder; "" if it is missing, empty, or
// longer than 1,023 bytes.
std::string GetSDKName();

// "/Volumes/", `name`, "_" and the login name, concatenated.
std::string GetOSXMountPath(std::string name);

// The directory of the executable, not resolved. An executable path of 1,025 bytes or more gives
// "".
std::string GetCurrentPath();

// The real user's login name; "" if the password database has no entry.
std::string GetUserName();
