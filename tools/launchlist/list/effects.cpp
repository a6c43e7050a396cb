#include "tools/launchlist/list/effects.h"

#include "launcher/log_messages.h"

namespace launchlist::effects {

namespace {

// `the launcher logs "..."`, with the text as it stands in the log after the tag.
std::string Logs(std::string_view message)
{
    return "the launcher logs \"" + std::string(WithoutTag(message)) + "\"";
}

}  // namespace

std::string RejectedAtStart()
{
    return Logs(kListRejected) + " and ends with status 0";
}

std::string RejectedAtItem(bool is_first, bool may_have_ended)
{
    if (is_first) {
        return RejectedAtStart();
    }
    if (may_have_ended) {
        return "the launcher reads no further items and ends, unless an item before this one has "
               "ended it already";
    }
    return Logs(kListRejected) +
           ", kills the child of every item before this one and ends with status 0; if one of them "
           "has not forked its child yet, the whole process group is killed by signal 9 instead";
}

std::string Skipped()
{
    return Logs(kItemHasNoName) + " and continues with the next item: this one never runs";
}

std::string Replaces(int earlier, int later)
{
    return "when item " + std::to_string(later) + " starts, item " + std::to_string(earlier) +
           " is ended: its child is killed by signal 9 or, if it has not been forked yet, the "
           "whole "
           "process group is, including the launcher";
}

std::string OfProgram(const ProgramFile& file)
{
    const std::string cannot_execute =
        std::string(file.may_be_registered ? kUnlessRegistered : "") + kCannotExecute;
    switch (*file.problem) {
        case Kind::kProgramRelative:
            return "the path is resolved in the directory in which the launcher is started; from "
                   "this directory the program can be executed";
        case Kind::kProgramRelativeUnusable:
            return "if the launcher is started in this directory, " + cannot_execute;
        case Kind::kProgramForeign:
            return "the item runs only if the system can emulate that processor; otherwise " +
                   cannot_execute;
        default:
            return cannot_execute;
    }
}

std::string NotBefore(const std::string& member)
{
    return "none until the mistake in \"" + member + "\" is fixed, which takes effect first";
}

}  // namespace launchlist::effects
