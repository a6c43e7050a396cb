// One line in the system log, for the few events that must be seen when the program's own log is
// not available.
#pragma once

#include <cstdint>
#include <string>

// The priority of this program's events: syslog's LOG_ERR, with the user's facility.
inline constexpr std::uint64_t kEventError = 3;

// Passes `source`, " : " and `message` to syslog. `priority` goes there unchanged, cut to an int.
// The text is syslog's format itself: a "%" in it is taken as a conversion.
// May be called from any thread; nothing is reported back.
void WriteEvent(const std::string& source, std::uint64_t priority, const std::string& message);
