#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "qv7log/include/qv7log.h"

namespace {
int g_descriptor = -1;

class FileLog final : public ILog
{
public:
    explicit FileLog(LOGLEVEL level) : m_level(level) {}
    void Reserved1() override {}
    void Reserved2() override {}
    void LogV(LOGLEVEL level, const char* format, va_list arguments) override
    {
        if (m_level != LOGLEVEL_VERBOSE && level < m_level)
            return;
        char text[4096];
        vsnprintf(text, sizeof text - 1, format, arguments);
        strcat(text, "\n");
        ssize_t ignored = write(g_descriptor, text, strlen(text));
        (void)ignored;
    }
    LOGLEVEL m_level;
};
}  // namespace

std::int32_t InitLogger(const char* path)
{
    std::string folder = path;
    for (size_t i = 1; i < folder.size(); ++i)
        if (folder[i] == '/')
            mkdir(folder.substr(0, i).c_str(), 0700);
    g_descriptor = open(path, O_WRONLY | O_CREAT | O_APPEND, 0600);
    return g_descriptor < 0 ? errno : 0;
}

std::int32_t GetLogger(std::int32_t kind, const char*, LOGLEVEL level, ILog** out)
{
    if (kind == 2)
        *out = new FileLog(level);
    return 0;
}
