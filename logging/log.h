// The call through which everything logs.
#pragma once

#include <cstdarg>

#include "qv7log/include/qv7log.h"

// Where this program logs to: null until InitLog has succeeded, and never reset after that. Defined
// with the program's other globals. Written once, before a second thread exists.
extern ILog* logger;

// Logs one record through `log`; does nothing at all while `log` is null.
// Each source that logs gets a copy of its own.
__attribute__((format(printf, 3, 4))) static inline void __LOG__A(ILog* log, LOGLEVEL level,
                                                                  const char* format, ...)
{
    if (log == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    log->LogV(level, format, arguments);
    va_end(arguments);
}
