// Writes what it inherited into the file "inherited" in its working directory: open descriptors,
// process group, ignored or blocked signals, file mask and environment, the last without escapes.
// Then reports its start and stays until a signal ends it.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "tests/helpers/start_report.h"

namespace {

std::vector<int> OpenDescriptors()
{
    std::vector<int> open_ones;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            open_ones.push_back(descriptor);
        }
    }
    return open_ones;
}

void PrintDescriptors(std::FILE* out, const std::vector<int>& descriptors)
{
    for (const int descriptor : descriptors) {
        struct stat file = {};
        fstat(descriptor, &file);
        const unsigned flags = static_cast<unsigned>(fcntl(descriptor, F_GETFL));
        std::fprintf(out, "descriptor %d: inode %llu%s%s\n", descriptor,
                     static_cast<unsigned long long>(file.st_ino),
                     (flags & O_ACCMODE) == O_WRONLY ? " write-only" : "",
                     (flags & O_APPEND) != 0 ? " append" : "");
    }
}

void PrintSignals(std::FILE* out)
{
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = 1; number < 32; ++number) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_DFL || sigismember(&blocked, number) != 0) {
            std::fprintf(out, "signal %d: not as by default\n", number);
        }
    }
}

}  // namespace

int main(int argc, char** argv, char** environment)
{
    const std::vector<int> descriptors = OpenDescriptors();
    std::FILE* out = std::fopen("inherited", "w");
    if (out == nullptr) {
        return 1;
    }
    PrintDescriptors(out, descriptors);
    PrintSignals(out);
    const mode_t mask = umask(0);
    umask(mask);
    std::fprintf(out, "group %d\nmask %03o\n", static_cast<int>(getpgrp()),
                 static_cast<unsigned>(mask));
    for (char** variable = environment; *variable != nullptr; ++variable) {
        std::fprintf(out, "environment %s\n", *variable);
    }
    std::fclose(out);
    ReportStart(argc, argv);
    for (;;) {
        pause();
    }
}
