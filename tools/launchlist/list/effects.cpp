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
        return "the launcher reads no further items and ends, unless an earlier item ends it first";
    }
    return Logs(kListRejected) +
           ", kills the children of the earlier items and ends with status 0; if one of these "
           "items has not forked its child yet, signal 9 kills the whole process group instead, "
           "including the launcher";
}

std::string Skipped()
{
    return Logs(kItemHasNoName) + " and skips the item, which never runs";
}

std::string Replaces(int earlier, int later)
{
    return "starting item " + std::to_string(later) + " ends item " + std::to_string(earlier) +
           ": signal 9 kills its child or, if that has not been forked yet, the whole process "
           "group, including the launcher";
}

std::string ProgramProblem(const ProgramFile& file)
{
    std::string cannot_execute =
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

std::string HiddenBy(const std::string& member)
{
    return "none until the mistake in \"" + member + "\" is fixed, which takes effect first";
}

}  // namespace launchlist::effects
