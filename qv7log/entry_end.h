// Where an entry of a log ends.
#pragma once

#include <cstddef>

#include "qv7log/record_format.h"

namespace qv7log {

// Returns the end of the entry that starts at `begin`: the line end, or the next timestamp that is
// not at `begin`. A record contains no timestamp except its own, so a second one in a line begins a
// new record. Returns `end` if there is neither.
//
// Examines each byte of the entry at most a fixed number of times, and no byte beyond the entry, so
// that reading a whole log takes time in proportion to its size. This is a template so that a test
// can count these accesses.
template <typename Iterator>
Iterator FindEntryEnd(Iterator begin, Iterator end)
{
    const auto size = static_cast<std::ptrdiff_t>(kTimestampSize);
    for (Iterator at = begin; at != end; ++at) {
        if (*at == '\n') {
            return at;
        }
        if (*at == kTimestampForm.back() && at - begin >= size) {
            const Iterator start = at - (size - 1);
            std::size_t matched = 0;
            while (matched < kTimestampSize &&
                   MatchesTimestamp(*(start + static_cast<std::ptrdiff_t>(matched)), matched)) {
                ++matched;
            }
            if (matched == kTimestampSize) {
                return start;
            }
        }
    }
    return end;
}

}  // namespace qv7log
