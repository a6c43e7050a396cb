// The logging library as the code under test sees it. The source defines InitLogger and GetLogger
// for the test program.
#pragma once

#include <string>
#include <vector>

#include "qv7log/include/qv7log.h"

struct FakeLogLibrary
{
    struct GetLoggerCall
    {
        std::int32_t kind;
        std::string name;
        LOGLEVEL level;
        bool out_was_null;
    };

    std::int32_t init_result = 0;
    std::int32_t get_result = 0;
    ILog* log = nullptr;  // What GetLogger stores in `out`; nothing if null.

    std::vector<std::string> init_paths;
    std::vector<GetLoggerCall> get_calls;
};

extern FakeLogLibrary g_fake_log_library;
