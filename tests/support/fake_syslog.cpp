#include "tests/support/fake_syslog.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

std::vector<std::pair<int, std::string>> g_system_events;
int g_openlog_calls = 0;

namespace {

void Keep(int priority, const char* format, va_list arguments)
{
    char text[1024];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(text, sizeof text, format, arguments);
#pragma GCC diagnostic pop
    g_system_events.emplace_back(priority, text);
}

}  // namespace

extern "C" void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}

extern "C" void openlog(const char*, int, int)
{
    ++g_openlog_calls;
}

#ifdef __GLIBC__
// The function that an optimised build with _FORTIFY_SOURCE calls for syslog.
extern "C" void __syslog_chk(int priority, int, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}
#endif
