// What a record of the launcher's log says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace launchlist {

enum class EventKind
{
    kStart,         // A supervisor is about to fork.
    kEnd,           // A child ended.
    kForkFailed,    // The supervisor stopped: it could not fork.
    kNoProgram,     // Written by a child, which then exits.
    kNoName,        // An item of the list was skipped.
    kListRejected,  // The launcher exits.
    kRecordsLost,   // `number` records could not be written.
    kOther
};

struct Event
{
    EventKind kind = EventKind::kOther;
    std::string_view name;     // The item's name; points into the text.
    std::int64_t child = 0;    // kEnd: the child's process id.
    std::int64_t result = 0;   // kEnd: the result of waitpid.
    int wait_status = 0;       // kEnd: the wait status.
    std::uint64_t number = 0;  // kRecordsLost.
};

// Reads the text of a record of `level`. A name may contain anything, including the text of another
// message, so only the level decides whether a record is a start.
Event ReadEvent(std::string_view level, std::string_view text);

// How a child ended.
struct Termination
{
    bool is_known = true;  // False: waitpid failed, and the wait status means nothing.
    int wait_status = 0;
};

constexpr bool operator==(const Termination& a, const Termination& b)
{
    return a.is_known == b.is_known && a.wait_status == b.wait_status;
}

constexpr bool operator<(const Termination& a, const Termination& b)
{
    return a.is_known != b.is_known ? a.is_known : a.wait_status < b.wait_status;
}

// The exit status, or the number of the signal that ended the child; at most one of the two.
std::optional<int> ExitStatusOf(const Termination& cause);
std::optional<int> SignalOf(const Termination& cause);
bool HasCore(const Termination& cause);

// "exit status 3", "killed by SIGSEGV, core dumped".
std::string TextOf(const Termination& cause);

}  // namespace launchlist
