// The public interface of the logging library.
//
// A program calls InitLogger once, then GetLogger, and logs through the ILog that it receives:
//
//     if (InitLogger("/home/u/Library/Logs/Kestrane/qv7log") == 0) {
//         GetLogger(LOGKIND_FILE, "launcher", LOGLEVEL_ERROR, &log);
//     }
//
// Forks:     LogV may be called at any time in a forked child and in its children, whatever the
//            other threads of the parent were doing at the fork. LogV never waits for anything
//            that a thread missing from the child might hold: a lock, buffered output, the
//            locale or the time zone. The child's records go to the same log, whole, with its
//            own process id, and it rotates the log when it is full. Fork handlers may log too.
//            A child made by a call other than fork() must not log before it executes a program.
// Threads:   LogV may be called from any number of threads at once. The records of one thread
//            stay in order. InitLogger and GetLogger must be called at start-up, before other
//            threads log. LogV is not a cancellation point.
// Stack:     LogV uses at most 5 KiB of stack, a rotation included (measured on x86-64 with
//            glibc 2.36), and more for a floating-point number, a pointer or a grouped number
//            (%f, %p, %'d), which the C library converts. Its first call may need more for the
//            dynamic linker.
// Lifetime:  the library owns every ILog and never destroys one, nor anything that it uses to
//            write: threads may log while the exit-time destructors run.
// Errors:    after start-up no error is reported, and none ends or blocks the caller: not a full
//            disk, not the limit for the size of a file, not another process that rotates the
//            log. There are two exceptions. If the log was removed, and another thread is creating
//            it again, LogV waits for that thread, for at most a second. If the limit for the size
//            of a file is lowered during a burst of records or during a call, or on macOS if
//            another process fills the file up to the limit during a call, the record may cause
//            SIGXFSZ. Records that cannot be written are counted. Once writing works again, a
//            record with the number lost comes first. errno is preserved.
// Log:       one line per record, see docs/log-format.md. The log is never a symbolic link.
// Files:     the log has two descriptors, which keep their numbers and follow a rotation. The first
//            one has the lowest number that is free when InitLogger is called. It is for the
//            programs that the process starts: they inherit it, and can write to the log through
//            it. Records are written through the second one, 3 or above, which is close-on-exec and
//            has its own open file description: what a program does to the flags or the offset of
//            the inherited one does not affect records. The process may close the first one, or use
//            its number for another file, which the library then leaves alone. It must not do so
//            with the second one.
#pragma once

#include <cstdarg>
#include <cstdint>

#define QV7LOG_API __attribute__((visibility("default")))

// VERBOSE is 17, not the next power of two: other components were built with these numbers.
enum LOGLEVEL : std::int32_t
{
    LOGLEVEL_DEBUG = 1,
    LOGLEVEL_MESSAGE = 2,
    LOGLEVEL_WARNING = 4,
    LOGLEVEL_ERROR = 8,
    LOGLEVEL_CRITICAL = 16,
    LOGLEVEL_VERBOSE = 17,
};

// The kinds of logs that GetLogger knows.
enum LOGKIND : std::int32_t
{
    LOGKIND_FILE = 2,
};

// The destination of log records.
class ILog
{
public:
    // Never called. They make LogV the third entry of the virtual table, where programs that were
    // built with other versions of the library expect it.
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;

    // Writes one record if `level` reaches the threshold of the log. `format` may contain the
    // conversions of C17 except %n, %ls and %lc, with the same results as in vsnprintf, the flag '
    // (%'d), and %m, which is the English description of errno. If it contains any other
    // conversion, such as %1$d or %Ld, the text is the format itself. A flag or a precision that
    // C17 does not define for its conversion may or may not have an effect. A width, or the
    // precision of a number, counts as 65,536 if it is greater. A text longer than 64 KiB is cut
    // and marked as such.
    virtual void LogV(LOGLEVEL level, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0))) = 0;

protected:
    // Not virtual: a virtual destructor would move LogV in the table.
    ~ILog() = default;
};

extern "C" {

// Opens the log at `path`. Creates it (mode 0600) and its directories (mode 0700), whatever the
// umask, if they do not exist; existing ones keep their modes. Returns 0, or an errno, and then
// leaves nothing open. A further call opens another log, which subsequent calls of GetLogger use;
// for a file that is open already, it opens nothing.
QV7LOG_API std::int32_t InitLogger(const char* path);

// Sets `*out` to a log for the program `name` and returns 0. `kind` must be LOGKIND_FILE. The log
// writes records of `level` and above. As a threshold, VERBOSE lets every record pass; as the level
// of a record, it is below all others. Returns an errno and leaves `*out` unchanged if `kind` is
// unknown, InitLogger has not succeeded, or there is no memory.
QV7LOG_API std::int32_t GetLogger(std::int32_t kind, const char* name, LOGLEVEL level, ILog** out);
}
