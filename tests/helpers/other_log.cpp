// A logging library that replaces our own in a bundle. It writes every call into the file
// "log_calls" in the working directory and provides no log. InitLogger returns the number in
// KESTRANE_TEST_LOG, or 0.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qv7log/include/qv7log.h"

namespace {

void NoteCall(const std::string& call)
{
    if (std::FILE* out = std::fopen("log_calls", "a")) {
        std::fprintf(out, "%s\n", call.c_str());
        std::fclose(out);
    }
}

}  // namespace

std::int32_t InitLogger(const char* path)
{
    NoteCall(std::string("InitLogger ") + path);
    const char* wanted = std::getenv("KESTRANE_TEST_LOG");
    return wanted != nullptr ? std::atoi(wanted) : 0;
}

std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out)
{
    NoteCall("GetLogger " + std::to_string(kind) + " " + name + " " + std::to_string(level) +
             (*out == nullptr ? " null" : " set"));
    return 0;
}
