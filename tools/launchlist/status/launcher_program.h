// Recognizing a launcher by its executable, and finding the files that belong to it.
#pragma once

#include <string>

#include "tools/launchlist/processes/processes.h"

namespace launchlist {

// Whether `executable` is the launcher of a bundle: Contents/MacOS/launcher, beside a Frameworks
// folder that contains the product's profile. Where an upgrade or a removal has deleted the file,
// the bundle's own name, Kestrane.app, is enough.
bool IsLauncher(const Executable& executable);

// The files of the launcher with this executable, for the present user.
struct LauncherFiles
{
    std::string log;
    std::string level;
};
LauncherFiles FilesOf(const std::string& executable);

// `path` as seen from `directory`, without "." and empty parts. A relative path stays relative if
// `directory` is empty.
std::string AbsolutePath(const std::string& directory, const std::string& path);

// `path` without symbolic links; "" if it does not exist.
std::string RealPath(const std::string& path);

}  // namespace launchlist
