// Times as the log has them: milliseconds since 1970-01-01T00:00:00Z.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace launchlist {

using Milliseconds = std::int64_t;

// A log's timestamp, "2026-11-21T02:26:11.123Z"; nothing for a day or time that does not exist.
std::optional<Milliseconds> ParseTimeStamp(std::string_view text);

// The time zone in which people read and write times.
enum class Zone
{
    kUtc,
    kLocal  // Of this machine.
};

// What `--since` and `--until` take: a timestamp that may end after its day, minutes or seconds, or
// a time of today ("09:00"), or "90s", "15m", "2h", "3d" before `now`. Times are in `zone`, or in
// UTC if they end in "Z".
std::optional<Milliseconds> ParseMoment(const std::string& text, Milliseconds now,
                                        Zone zone = Zone::kUtc);

// "2026-11-21T02:26:11.123Z", and the same without the fraction for people: "2026-11-21 02:26:11".
std::string FormatTimeStamp(Milliseconds time);
std::string FormatForPeople(Milliseconds time);

// What a clock in a time zone shows: "2026-11-21", "02:26:11", and "UTC" or "UTC+01:00".
struct WallTime
{
    std::string date;
    std::string clock;
    std::string zone;
};
WallTime WallTimeOf(Milliseconds time, Zone zone);

// "2026-11-21 02:26:11 to 03:00:00 UTC"; the second date only where it is another one.
std::string FormatRange(Milliseconds first, Milliseconds last);

// "0.31 s", "4.2 s", "2 min 5 s", "3 h 20 min", "4 d 3 h".
std::string FormatDuration(Milliseconds duration);

}  // namespace launchlist
