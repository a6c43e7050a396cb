// The logging library: all that a program knows of it.
//
// A program calls InitLogger once, then GetLogger, and logs through the ILog that it gets:
//
//     if (InitLogger("/home/u/Library/Logs/Kestrane/qv7log") == 0) {
//         GetLogger(2, "launcher", LOGLEVEL_ERROR, &log);
//     }
//
// Forks:     every operation of ILog may be called at any time in a child made by fork,
//            whatever the other threads of the parent were doing then, and in children of that
//            child. Nothing on the way can be held for ever by a thread that the child does not
//            have: no lock, no buffered output, no locale, no time zone. The child's records go
//            to the same log, whole, under its own process id. Rotating is left to the process
//            that called InitLogger.
// Threads:   LogV may be called from any number of threads at once. The records of one thread
//            stay in order. InitLogger and GetLogger are for the start, before other threads
//            log.
// Lifetime:  the library owns every ILog and never destroys one, nor what it writes with:
//            threads may log while the exit-time destructors run.
// Errors:    after the start none is reported and nothing stops or blocks the caller. Records
//            that cannot be written are counted; the first one that can be again is preceded by
//            one that says how many were lost. errno is left as it was.
// Log:       one line a record, docs/log-format.md. The log is never a symbolic link. Its
//            descriptor is the lowest that was free in InitLogger, keeps its number for ever
//            and is inherited by every program that the process starts; nobody else may close
//            it.
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

// Where log records go.
class ILog
{
public:
    // Two entries that no program calls. They keep LogV the third of the table, where programs and
    // libraries of different age look for it.
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;

    // Writes one record if `level` reaches the log's threshold: `format` filled in with `arguments`
    // as by vsnprintf. A text of up to 64 KiB is kept whole, a longer one is cut, with a mark.
    virtual void LogV(LOGLEVEL level, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0))) = 0;

protected:
    // Not virtual: a virtual one would move LogV in the table.
    ~ILog() = default;
};

extern "C" {

// Opens the log at `path`; creates it (0600) and its folders (0700) where they do not exist.
// Returns 0, or the errno of what failed, and then nothing is left open. A later call begins
// another log for the GetLogger calls after it.
QV7LOG_API std::int32_t InitLogger(const char* path);

// Sets `*out`, which the caller has set to null, to the log of `kind` 2 for the program `name`. It
// writes the records of `level` and above; VERBOSE lets everything pass and is, as the level of a
// record, below all others. Leaves `*out` alone for any other kind and before InitLogger has
// succeeded, and returns an errno then, otherwise 0.
QV7LOG_API std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out);
}
