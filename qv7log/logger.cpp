// The two entry points and the log behind them.
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "qv7log/include/qv7log.h"
#include "qv7log/limits.h"
#include "qv7log/record.h"
#include "qv7log/rotating_file.h"

namespace qv7log {
namespace {

constexpr LOGLEVEL kNoticeLevel = LOGLEVEL_ERROR;

// Never reset: see the header.
std::atomic<RotatingFile*> g_file{nullptr};

// VERBOSE has the highest number and the lowest rank: as a threshold it lets everything pass.
int Rank(LOGLEVEL level)
{
    return level == LOGLEVEL_VERBOSE ? INT_MIN : level;
}

// This process; getpid asks the system, which is an eighth of a record's price.
std::atomic<pid_t> g_process{0};

void RememberProcess()
{
    g_process.store(getpid(), std::memory_order_relaxed);
}

class Logger final : public ILog
{
public:
    Logger(RotatingFile& file, std::string_view name, LOGLEVEL threshold)
        : m_file(file), m_threshold(Rank(threshold))
    {
        name = name.substr(0, kMaxName);
        name = name.substr(0, SizeOfWholeCharacters(name));
        const char* const end = PutName(m_name, name);
        m_name_size = static_cast<std::size_t>(end - m_name);
    }

    void Reserved1() override {}
    void Reserved2() override {}

    void LogV(LOGLEVEL level, const char* format, va_list arguments) override
        __attribute__((format(printf, 3, 0)))
    {
        if (Rank(level) >= m_threshold) {
            const int error = errno;
            Format(level, format, arguments);
            errno = error;
        }
    }

private:
    void Format(LOGLEVEL level, const char* format, va_list arguments)
        __attribute__((noinline, format(printf, 3, 0)));
    void FormatLong(LOGLEVEL level, std::size_t size, const char* format, va_list arguments)
        __attribute__((noinline, format(printf, 4, 0)));
    void Write(LOGLEVEL level, std::string_view text, std::size_t cut, char* line);
    bool WriteNotice(Heading heading, std::uint32_t lost);

    RotatingFile& m_file;
    const int m_threshold;
    std::size_t m_name_size = 0;
    char m_name[kMaxName * kEscapedSize];
};

// The space that Write needs for the line of a text of `size` bytes.
constexpr std::size_t LineSpace(std::size_t size)
{
    return kMaxFraming + size * kEscapedSize;
}

void Logger::Format(LOGLEVEL level, const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    char text[kStackText];
    const int result = vsnprintf(text, sizeof text, format, arguments);
    const auto size = static_cast<std::size_t>(result);
    if (result >= 0 && size >= sizeof text) {
        FormatLong(level, size, format, again);
    } else {
        // What cannot be formatted is logged as it stands; only its reader can say what is wrong.
        const std::string_view whole(result < 0 ? format : text,
                                     result < 0 ? strlen(format) : size);
        const std::string_view kept = whole.substr(0, kStackText);
        char line[LineSpace(kStackText)];
        Write(level, kept, whole.size() - kept.size(), line);
    }
    va_end(again);
}

// The same for a text that needs the heap. Without memory, its beginning is better than nothing.
void Logger::FormatLong(LOGLEVEL level, std::size_t size, const char* format, va_list arguments)
{
    char few[256];
    char few_line[LineSpace(sizeof few)];
    std::size_t space = std::min(size, kMaxText) + 1;
    const std::unique_ptr<char[]> memory(new (std::nothrow) char[space + LineSpace(space)]);
    char* const text = memory ? memory.get() : few;
    char* const line = memory ? text + space : few_line;
    if (!memory) {
        space = sizeof few;
    }
    // Another thread may have changed an argument since it was measured.
    size = static_cast<std::size_t>(std::max(vsnprintf(text, space, format, arguments), 0));
    std::string_view kept(text, std::min(size, space - 1));
    if (kept.size() < size) {
        kept = kept.substr(0, SizeOfWholeCharacters(kept));
    }
    Write(level, kept, size - kept.size(), line);
}

// Writes the record of a text that lacks its last `cut` bytes. `line` has LineSpace for the text.
void Logger::Write(LOGLEVEL level, std::string_view text, std::size_t cut, char* line)
{
    Heading heading = {{}, level, {m_name, m_name_size}, g_process.load(std::memory_order_relaxed)};
    clock_gettime(CLOCK_REALTIME, &heading.time);
    char* end = PutText(PutHeading(line, heading), text);
    if (cut != 0) {
        end = PutCutMark(end, cut);
    }
    *end++ = '\n';

    m_file.ReopenIfMoved(heading.time, heading.process);
    const std::uint32_t lost = m_file.lost.Take(heading.process);
    if (lost != 0 && !WriteNotice(heading, lost)) {
        m_file.lost.Add(lost, heading.process);
        m_file.lost.Add(1, heading.process);
        return;
    }
    if (!m_file.Append(line, static_cast<std::size_t>(end - line), heading.process)) {
        m_file.lost.Add(1, heading.process);
    }
}

bool Logger::WriteNotice(Heading heading, std::uint32_t lost)
{
    char text[64];
    snprintf(text, sizeof text, "[QV7LOG    ] %u records were lost", static_cast<unsigned>(lost));
    heading.level = kNoticeLevel;
    char line[LineSpace(sizeof text)];
    char* end = PutText(PutHeading(line, heading), text);
    *end++ = '\n';
    return m_file.Append(line, static_cast<std::size_t>(end - line), heading.process);
}

}  // namespace
}  // namespace qv7log

std::int32_t InitLogger(const char* path)
{
    if (qv7log::g_file.load() == nullptr) {
        const int error = pthread_atfork(nullptr, nullptr, qv7log::RememberProcess);
        if (error != 0) {
            return error;
        }
        qv7log::RememberProcess();
    }
    auto* const file = new (std::nothrow) qv7log::RotatingFile;
    if (file == nullptr) {
        return ENOMEM;
    }
    const int error = file->Open(path);
    if (error != 0) {
        delete file;
        return error;
    }
    qv7log::g_file.store(file);
    return 0;
}

std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out)
{
    qv7log::RotatingFile* const file = qv7log::g_file.load();
    if (kind != LOGKIND_FILE || file == nullptr) {
        return EINVAL;
    }
    auto* const log = new (std::nothrow) qv7log::Logger(*file, name, level);
    if (log == nullptr) {
        return ENOMEM;
    }
    *out = log;
    return 0;
}
