#include "tests/support/fake_log_library.h"

FakeLogLibrary g_fake_log_library;

std::int32_t InitLogger(const char* path)
{
    g_fake_log_library.init_paths.emplace_back(path);
    return g_fake_log_library.init_result;
}

std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out)
{
    g_fake_log_library.get_calls.push_back({kind, name, level, *out == nullptr});
    if (g_fake_log_library.log != nullptr) {
        *out = g_fake_log_library.log;
    }
    return g_fake_log_library.get_result;
}
