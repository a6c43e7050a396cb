#include "logging/event_log.h"

#include <syslog.h>

void WriteEvent(const std::string& source, std::uint64_t priority, const std::string& message)
{
    const std::string text = source + " : " + message;
// The text is deliberately the format. The product's components were written against that: they
// write "%%" for "%", and with a "%s" format both characters would appear in the log.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    syslog(static_cast<int>(priority), text.c_str());
#pragma GCC diagnostic pop
}
