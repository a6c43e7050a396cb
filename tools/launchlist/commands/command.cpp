#include "tools/launchlist/commands/command.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"

namespace launchlist {

bool ReadList(const std::string& path, std::string& bytes, std::string& error)
{
    return path == "-" ? ReadDescriptor(STDIN_FILENO, bytes, error) : ReadFile(path, bytes, error);
}

bool UseColor()
{
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

int Print(const std::string& text, int status)
{
    const bool is_written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && is_written ? status
                                                  : FailOn("standard output", std::strerror(errno));
}

int FailOn(const std::string& path, const std::string& error)
{
    std::fprintf(stderr, "launchlist: %s: %s\n", printable(path).c_str(), error.c_str());
    return kUnreadable;
}

}  // namespace launchlist
