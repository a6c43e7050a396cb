#include "tools/launchlist/output/event_wording.h"

#include "qv7log/record_format.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_wording.h"
#include "tools/launchlist/output/terminal_style.h"

namespace launchlist {

namespace {

// A name with a blank could imitate the words after it, so it is quoted.
std::string Named(const std::string& name)
{
    std::string text = printable(name);
    if (!text.empty() && text.find_first_of(" \"") == std::string::npos) {
        return text;
    }
    std::string result = "\"";
    for (const char c : text) {
        result += c == '"' ? "\\\"" : std::string(1, c);
    }
    return result + "\"";
}

std::string ProcessText(std::int64_t process)
{
    return "process " + std::to_string(process);
}

// "was killed by SIGSEGV".
std::string Verb(const Termination& termination)
{
    if (const auto status = ExitStatusOf(termination)) {
        return "exited with status " + std::to_string(*status);
    }
    // Without the remark about the core, which follows the length of the run.
    Termination plain = termination;
    if (SignalOf(termination)) {
        plain.wait_status = *SignalOf(termination);
        return "was " + TextOf(plain);
    }
    return "ended with " + TextOf(plain);
}

std::string EndText(const LogEvent& event)
{
    const Run& run = *event.run;
    const std::string name = Named(event.name);
    if (!run.termination.is_known) {
        return name + ": waitpid failed for " + ProcessText(event.child) +
               ", so whether, when and how it ended is unknown" +
               (event.is_restarted ? "; restarting" : "");
    }
    std::string text = name + " ";
    if (run.role == Role::kFailed) {
        text = ProcessText(event.child) + " of " + name +
               (run.lacks_program ? ", which has no program, " : ", which could not be executed, ");
    }
    text +=
        run.ended_by == EndedBy::kLauncher ? "was killed by its launcher" : Verb(run.termination);
    const auto length = run.Length();
    if (length && run.role != Role::kFailed) {
        text += " after " + FormatDuration(*length);
    }
    text += HasCore(run.termination) ? " (core dumped)" : "";
    if (run.ended_by == EndedBy::kMaybeLauncher) {
        return text + ", perhaps by its launcher";
    }
    return text + (event.is_restarted                                  ? "; restarting"
                   : run.is_final && run.ended_by == EndedBy::kProgram ? "; not restarted"
                                                                       : "");
}

std::string StartText(const LogEvent& event)
{
    const std::string name = Named(event.name);
    if (event.is_continued) {
        return name + " could not be executed; its child " + std::to_string(event.process) +
               " is starting it again";
    }
    return name + (event.run->is_first ? " is starting" : " is starting again");
}

Style StyleOf(const LogEvent& event)
{
    if (event.entry != EntryKind::kLauncherRecord) {
        return event.entry == EntryKind::kOtherRecord ? Style::kDim : Style::kYellow;
    }
    switch (event.kind) {
        case EventKind::kStart:
            return event.is_continued ? Style::kRed : Style::kGreen;
        case EventKind::kEnd:
            return event.run->ended_by == EndedBy::kLauncher ? Style::kDim
                   : event.run->IsCrash()                    ? Style::kRed
                                                             : Style::kYellow;
        case EventKind::kRecordsLost:
            return Style::kYellow;
        default:
            return Style::kRed;
    }
}

}  // namespace

std::string EventText(const LogEvent& event)
{
    switch (event.entry) {
        case EntryKind::kOtherRecord:
            // Another program may have imitated a record, so it may contain anything. A time that
            // does not exist is shown as well.
            return printable(event.time ? event.text.substr(qv7log::kTimestampSize + 1)
                                        : event.text);
        case EntryKind::kUnparsed:
            return "not a record (" + printable(event.place) + "): \"" + printable(event.text) +
                   "\"";
        case EntryKind::kTruncated:
            return "the log was truncated; events may be missing";
        case EntryKind::kReplaced:
            return "the log was removed or replaced";
        case EntryKind::kLauncherRecord:
            break;
    }
    switch (event.kind) {
        case EventKind::kStart:
            return StartText(event);
        case EventKind::kEnd:
            return EndText(event);
        case EventKind::kForkFailed:
            return Named(event.name) + " is abandoned: fork failed";
        case EventKind::kNoProgram:
            return Named(event.name) + " has no program";
        case EventKind::kNoName:
            return "an item without a name was skipped";
        case EventKind::kListRejected:
            return "the launcher could not use its list, or could not create a thread";
        default:
            return ProcessText(event.process) + " could not write " +
                   counted(static_cast<std::size_t>(event.number), "record");
    }
}

std::string EventLines::Of(const LogEvent& event)
{
    std::string lines;
    std::string clock(8, '-');
    clock[2] = clock[5] = ':';
    std::string day = m_day;
    if (event.time) {
        const WallTime time = WallTimeOf(*event.time, m_zone);
        clock = time.clock;
        day = time.date + " " + time.zone;
    }
    const bool is_other_launcher =
        event.launcher && (!m_launcher || m_launcher->number != event.launcher->number);
    if (is_other_launcher) {
        m_launcher = event.launcher;
    }
    if (is_other_launcher || day != m_day) {
        m_day = day;
        std::string header = "-- " + day;
        if (m_launcher) {
            header += ", " + LauncherName(m_launcher->process, m_launcher->may_be_child_of);
        }
        lines = styled(header + " --", Style::kBold, m_color) + "\n";
    }
    return lines + clock + " " + styled(EventText(event), StyleOf(event), m_color) + "\n";
}

}  // namespace launchlist
