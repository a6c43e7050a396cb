// The two entry points, and the log that they create.
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <memory>
#include <new>

#include "qv7log/format.h"
#include "qv7log/include/qv7log.h"
#include "qv7log/limits.h"
#include "qv7log/process_id.h"
#include "qv7log/record.h"
#include "qv7log/rotating_file.h"

namespace qv7log {
namespace {

constexpr LOGLEVEL kReportLevel = LOGLEVEL_ERROR;

// The log that GetLogger uses; null before InitLogger has succeeded. Never reset: see the header.
std::atomic<RotatingFile*> g_file{nullptr};

// All logs, linked by RotatingFile::next.
std::atomic<RotatingFile*> g_files{nullptr};

void ForgetParent()
{
    RotatingFile::ForgetParentsChange();
    // In a new PID namespace a child can have the process id of its parent.
    for (RotatingFile* file = g_files.load(); file != nullptr; file = file->next) {
        file->lost.Take(ProcessId());
    }
}

// A thread that is cancelled while it changes the log would leave the flag of the change set, and
// this process could never rotate or reopen the log again.
class CancellationBlocker
{
public:
    CancellationBlocker() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_previous); }
    ~CancellationBlocker() { pthread_setcancelstate(m_previous, nullptr); }
    CancellationBlocker(const CancellationBlocker&) = delete;
    CancellationBlocker& operator=(const CancellationBlocker&) = delete;

private:
    int m_previous = PTHREAD_CANCEL_ENABLE;
};

class Logger final : public ILog
{
public:
    Logger(RotatingFile& file, std::string_view name, LOGLEVEL threshold)
        : m_threshold(threshold == LOGLEVEL_VERBOSE ? INT_MIN : threshold), m_file(file)
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
        // VERBOSE has the highest number, but as the level of a record it is below all others.
        if (level >= m_threshold && (level != LOGLEVEL_VERBOSE || m_threshold == INT_MIN)) {
            Format(level, format, arguments);
        }
    }

private:
    void Format(LOGLEVEL level, const char* format, va_list arguments)
        __attribute__((noinline, format(printf, 3, 0)));
    void FormatLong(const Heading& heading, char* line, std::size_t size, const char* format,
                    va_list arguments, int error) __attribute__((noinline, format(printf, 5, 0)));
    void Write(const Heading& heading, const char* line, const char* end);
    bool WriteReport(Heading heading, std::uint32_t lost, std::int64_t checked)
        __attribute__((noinline));

    const int m_threshold;  // INT_MIN: every record passes
    RotatingFile& m_file;
    std::size_t m_name_size = 0;
    char m_name[kMaxName * kEscapedSize];
};

// The space for a line with a text of `size` bytes, however many of them are escaped.
constexpr std::size_t LineSpace(std::size_t size)
{
    return kMaxFraming + size * kEscapedSize;
}

// If the heap is exhausted, this many bytes of a long text are written.
constexpr std::size_t kTextWithoutHeap = (kStackLine - kMaxFraming - 1) / kEscapedSize;

void Logger::Format(LOGLEVEL level, const char* format, va_list arguments)
{
    const int error = errno;
    const CancellationBlocker blocker;
    Heading heading = {{}, level, {m_name, m_name_size}, ProcessId()};
    clock_gettime(CLOCK_REALTIME, &heading.time);

    // Almost every text is written in place, after the heading, and contains nothing to escape.
    char line[kStackLine];
    char* const text = PutHeading(line, heading);
    const auto space = static_cast<std::size_t>(line + sizeof line - text);
    const std::size_t size = FormatText(text, space, format, arguments, error);
    if (size < space && IsPlain({text, size})) {
        text[size] = '\n';
        Write(heading, line, text + size + 1);
    } else if (size < space && LineSpace(size) <= sizeof line) {
        // Move the text to the end of the buffer, and escape it from there to its place.
        char* const copy = line + sizeof line - size;
        memmove(copy, text, size);
        char* end = PutText(text, {copy, size});
        *end++ = '\n';
        Write(heading, line, end);
    } else {
        FormatLong(heading, line, size, format, arguments, error);
    }
    errno = error;
}

// Writes a record whose text of `size` bytes needs more than the kStackLine bytes at `line`, and
// cuts the text if it is too long. A text that cannot be formatted is replaced by its format, so
// that a reader can see what is wrong with it.
void Logger::FormatLong(const Heading& heading, char* line, std::size_t size, const char* format,
                        va_list arguments, int error)
{
    const bool is_formattable = size != kUnformattable;
    std::size_t space = std::min(is_formattable ? size : strlen(format), kMaxText);
    const std::unique_ptr<char[]> memory(new (std::nothrow) char[LineSpace(space) + 1]);
    if (memory) {
        line = memory.get();
    } else {
        space = std::min(space, kTextWithoutHeap);
    }
    // Format the text at the end of the buffer, and escape it from there to its place.
    char* const text = line + LineSpace(space) - space;
    if (is_formattable) {
        size = FormatText(text, space + 1, format, arguments, error);
        // Another thread may have changed an argument since the size was measured.
        size = size == kUnformattable ? 0 : size;
    } else {
        size = strlen(format);
        std::copy_n(format, space, text);
    }
    std::string_view kept(text, std::min(size, space));
    if (kept.size() < size) {
        kept = kept.substr(0, SizeOfWholeCharacters(kept));
    }
    char* end = PutText(PutHeading(line, heading), kept);
    if (kept.size() < size) {
        end = PutCutMark(end, size - kept.size());
    }
    *end++ = '\n';
    Write(heading, line, end);
}

void Logger::Write(const Heading& heading, const char* line, const char* end)
{
    const std::int64_t checked = m_file.ReopenIfMoved(heading.process);
    const std::uint32_t lost = m_file.lost.Take(heading.process);
    if (lost != 0 && !WriteReport(heading, lost, checked)) {
        m_file.lost.Add(lost, heading.process);
        m_file.lost.Add(1, heading.process);
        return;
    }
    const auto size = static_cast<std::size_t>(end - line);
    if (!m_file.Append(line, size, heading.process, checked)) {
        m_file.lost.Add(1, heading.process);
    }
}

// Writes the record that reports how many records were lost.
bool Logger::WriteReport(Heading heading, std::uint32_t lost, std::int64_t checked)
{
    constexpr std::string_view kTag = "[QV7LOG    ] ";
    constexpr std::string_view kWereLost = " records were lost\n";
    char line[kMaxFraming + kTag.size() + 10 + kWereLost.size()];
    heading.level = kReportLevel;
    char* end = PutText(PutHeading(line, heading), kTag);
    end = std::to_chars(end, line + sizeof line, lost).ptr;
    end += kWereLost.copy(end, kWereLost.size());
    return m_file.Append(line, static_cast<std::size_t>(end - line), heading.process, checked);
}

}  // namespace
}  // namespace qv7log

std::int32_t InitLogger(const char* path)
{
    using qv7log::RotatingFile;
    if (qv7log::g_files.load() == nullptr) {
        static bool is_watching = false;
        const int error = is_watching ? 0 : qv7log::WatchForks(qv7log::ForgetParent);
        if (error != 0) {
            return error;
        }
        is_watching = true;
    }
    auto* const file = new (std::nothrow) RotatingFile;
    if (file == nullptr) {
        return ENOMEM;
    }
    const int error = file->Open(path);
    if (error != 0) {
        delete file;
        return error;
    }
    // Two descriptors of one log would follow a rotation at different times, so that the records
    // of a thread would be out of order.
    for (RotatingFile* open = qv7log::g_files.load(); open != nullptr; open = open->next) {
        if (open->IsSameLog(*file)) {
            file->Close();
            delete file;
            qv7log::g_file.store(open);
            return 0;
        }
    }
    file->next = qv7log::g_files.load();
    qv7log::g_files.store(file);
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
