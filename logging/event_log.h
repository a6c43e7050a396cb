// The system log, for the few events that must be reported when the program's own log is
// unavailable.
#pragma once

#include <cstdint>
#include <string>

// The priority of this program's events: LOG_ERR of syslog. Without a facility in its upper bits,
// syslog uses LOG_USER.
inline constexpr std::uint64_t kEventError = 3;

// Writes `source`, " : " and `message` to the system log. Passes `priority` on unchanged except
// that it is cut to an int. Never calls openlog, so the system's default identity applies.
// The text is syslog's format: the caller must write "%%" for "%", and must not pass conversions
// that take an argument, such as "%s", which read whatever the stack holds.
// May be called from any thread. Errors are not reported.
void WriteEvent(const std::string& source, std::uint64_t priority, const std::string& message);
