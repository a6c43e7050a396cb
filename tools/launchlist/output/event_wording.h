// The events of a log in words, a line for each.
#pragma once

#include <optional>
#include <string>

#include "tools/launchlist/log/event_queue.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// "thumbnailer was killed by SIGABRT after 3.0 s; restarting". Printable. Says only what the log
// shows.
std::string EventText(const LogEvent& event);

// Writes the lines of events, each with its time. A line between dashes precedes the first event of
// a day, of another launcher, and of another offset from UTC.
class EventLines
{
public:
    EventLines(Zone zone, bool color) : m_zone(zone), m_color(color) {}

    // Ends in a line feed.
    std::string Of(const LogEvent& event);

private:
    const Zone m_zone;
    const bool m_color;
    std::string m_day;
    std::optional<LauncherId> m_launcher;
};

}  // namespace launchlist
