// What a record of the launcher's log says.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace launchlist {

enum class EventKind
{
    kStart,        // A supervisor is about to fork.
    kEnd,          // A child has ended.
    kForkFailed,   // The supervision of an item is over.
    kNoProgram,    // Written by a child, which then ends.
    kNoName,       // An item of the list was skipped.
    kListRefused,  // The launcher ends.
    kRecordsLost,  // The log lacks records, `number` of them.
    kOther
};

struct Event
{
    EventKind kind = EventKind::kOther;
    std::string_view name;    // The item's, a part of the text.
    std::int64_t child = 0;   // Of an end: the process id,
    std::int64_t result = 0;  // what waitpid returned
    int wait_status = 0;      // and the wait status.
    std::uint64_t number = 0;
};

// Reads the text of a record of `level`. A name may hold anything, also the words of another
// message; the level tells a start from all the rest.
Event ReadEvent(std::string_view level, std::string_view text);

// The end of a child in words: "exit status 3", "killed by SIGSEGV, core dumped".
std::string EndInWords(std::int64_t result, int wait_status);

}  // namespace launchlist
