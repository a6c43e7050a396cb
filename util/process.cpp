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
    // Until the end of file, and only that: a read error is followed by another read.
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
