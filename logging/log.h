// The log call that every part of the program uses.
#pragma once

#include <cstdarg>

#include "qv7log/include/qv7log.h"

// The program's log; null until InitLog has succeeded, and never reset after that. Defined with the
// program's other globals. Written once, before a second thread exists, so it needs no lock.
extern ILog* logger;

// Logs one record through `log`; does nothing if `log` is null. Each source that logs gets its own
// copy of the function.
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
