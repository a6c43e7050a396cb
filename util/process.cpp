#include <signal.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "util/util.h"

std::string pexec(std::string command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(popen(command.c_str(), "r"),
                                                                 pclose);
    if (stream == nullptr) {
        throw std::runtime_error("popen() failed!");
    }
    std::string output;
    char piece[128];
    // Deliberately no check for read errors: only end of file ends the loop. Other components of
    // the product were written against this; with a check they would take partial output for
    // complete.
    while (!std::feof(stream.get())) {
        if (std::fgets(piece, sizeof piece, stream.get()) != nullptr) {
            output += piece;
        }
    }
    return output;
}

bool IsRunningPID(long long pid)
{
    return kill(static_cast<pid_t>(pid), 0) == 0;
}
