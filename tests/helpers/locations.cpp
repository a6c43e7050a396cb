// Writes the locations of the product, as this program sees them, into the file "locations" in its
// working directory. Then reports its start and stays until a signal ends it.
#include "config/locations.h"

#include <unistd.h>

#include <cstdio>

#include "tests/helpers/start_report.h"

namespace {

void Print(std::FILE* out, const char* name, const std::string& value)
{
    std::fprintf(out, "%s=%s\n", name, value.c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    std::FILE* out = std::fopen("locations", "w");
    if (out == nullptr) {
        return 1;
    }
    Print(out, "GetAppPath", GetAppPath());
    Print(out, "IsFinderSync", IsFinderSync() ? "true" : "false");
    Print(out, "GetHomePath", GetHomePath());
    Print(out, "GetAppDataPath", GetAppDataPath());
    Print(out, "GetSDKName", GetSDKName());
    Print(out, "GetOSXMountPath", GetOSXMountPath("Share"));
    Print(out, "GetCurrentPath", GetCurrentPath());
    Print(out, "GetUserName", GetUserName());
    std::fclose(out);
    ReportStart(argc, argv);
    for (;;) {
        pause();
    }
}
