// Correcting the mistakes of a launch list that have exactly one sensible correction.
//
// Comments, order and layout stay byte for byte, except inside what is corrected. What is never
// decided here: which of two items with the same number is meant, what a missing name, program or
// argument should be, and what was meant by text that is not JSON.
#pragma once

#include <string>

#include "tools/launchlist/base/text_edit.h"

namespace launchlist {

struct FixedList
{
    std::string bytes;  // The corrected list.
    TextEdits edits;    // What they change in the original; none if there is nothing to correct.

    // Why items are not renumbered although their numbers have a gap or are written unusually; ""
    // if they are, or need not be.
    std::string numbering_problem;
};

// Corrects the list whose file holds `bytes`:
//
// - UTF-16, UTF-32 and a byte order mark: the result is UTF-8. Without a mark only if the result is
//   JSON.
// - A member of an item, of "args" or "$schema" that is given more than once: only the last one,
//   which counts, is kept.
// - "args" written as an array of strings, numbers and booleans: written as an object.
// - "argc" that is not the number of arguments, or is missing: set, if the arguments are numbered
//   from "0" without a gap and each is a string, a number or a boolean. A negative "argc" and one
//   of another type stay as they are.
// - "argc" written as a string of digits: written as a number.
// - The numbers of items and arguments: "01", "+1" and " 1 " become "1". Gaps between items are
//   closed in the order of the numbers. Not if two items have the same number, if it is not certain
//   which name is a number, or if an item that was never reached would end the launcher.
//
// FixList(FixList(bytes).bytes) has no edits.
FixedList FixList(const std::string& bytes);

}  // namespace launchlist
