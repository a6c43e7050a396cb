#include "tools/launchlist/command.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tools/launchlist/base/text.h"

namespace launchlist {

bool UseColor()
{
    const char* no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

int Print(const std::string& text, int status)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? status : kUnreadable;
}

int FailOn(const std::string& path, const std::string& error)
{
    std::fprintf(stderr, "launchlist: %s: %s\n", printable(path).c_str(), error.c_str());
    return kUnreadable;
}

}  // namespace launchlist
