// The logging library: all that a program knows of it.
//
// A program calls InitLogger once, then GetLogger, and logs through the ILog that it gets.
#pragma once

#include <cstdarg>
#include <cstdint>

#define QV7LOG_API __attribute__((visibility("default")))

// VERBOSE is 17 and no further power of two: programs and settings hold these numbers.
enum LOGLEVEL : std::int32_t
{
    LOGLEVEL_DEBUG = 1,
    LOGLEVEL_MESSAGE = 2,
    LOGLEVEL_WARNING = 4,
    LOGLEVEL_ERROR = 8,
    LOGLEVEL_CRITICAL = 16,
    LOGLEVEL_VERBOSE = 17,
};

// Where log records go. The library owns every ILog and never destroys one, so that threads may log
// while the exit-time destructors run. LogV may be called from several threads at once.
class ILog
{
public:
    // Two entries that no program calls. They keep LogV the third of the table, where programs and
    // libraries of different age look for it.
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;

    // Writes one record: `format` filled in with `arguments` as by vsnprintf.
    virtual void LogV(LOGLEVEL level, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0))) = 0;

protected:
    // Not virtual: a virtual one would move LogV in the table.
    ~ILog() = default;
};

extern "C" {

// Prepares the log at `path`. Returns 0, or the errno of what failed. Called once.
QV7LOG_API std::int32_t InitLogger(const char* path);

// Sets `*out`, which the caller has set to null, to the log of `kind` 2 for the program `name`,
// which writes records of `level` and above. Called only after InitLogger succeeded.
QV7LOG_API std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out);
}
