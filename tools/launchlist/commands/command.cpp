#include "tools/launchlist/commands/command.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"

namespace launchlist {

void AddFailOn(CLI::App& parser, std::string& severity)
{
    parser
        .add_option("--fail-on", severity,
                    "The least severity for which the exit status is not 0: warning (the "
                    "default) or error")
        ->type_name("SEVERITY")
        ->check(CLI::IsMember({kFailOnWarnings, kFailOnErrors}));
}

int StatusOf(const Findings& findings, const std::string& fail_on)
{
    const bool has_warnings = findings.warnings > 0 && fail_on == kFailOnWarnings;
    return findings.errors > 0 ? kErrors : has_warnings ? kWarnings : kSuccess;
}

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
