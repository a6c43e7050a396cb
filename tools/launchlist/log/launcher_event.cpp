#include "tools/launchlist/log/launcher_event.h"

#include <signal.h>
#include <sys/wait.h>

#include <charconv>
#include <limits>

#include "launcher/log_messages.h"

namespace launchlist {

namespace {

struct SignalName
{
    int number;
    const char* name;
};

// The numbers differ between systems. A log must be read on the kind of system that wrote it, or
// the names may be wrong.
constexpr SignalName kSignalNames[] = {
    {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},       {SIGQUIT, "SIGQUIT"}, {SIGILL, "SIGILL"},
    {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},     {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
    {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"},     {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
    {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"}, {SIGXCPU, "SIGXCPU"},
    {SIGXFSZ, "SIGXFSZ"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}, {SIGSYS, "SIGSYS"},
};

std::string NameOfSignal(int number)
{
    for (const SignalName& entry : kSignalNames) {
        if (entry.number == number) {
            return entry.name;
        }
    }
    return "signal " + std::to_string(number);
}

bool TakeFront(std::string_view& text, std::string_view prefix)
{
    if (text.substr(0, prefix.size()) != prefix) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

bool TakeBack(std::string_view& text, std::string_view suffix)
{
    if (text.size() < suffix.size() || text.substr(text.size() - suffix.size()) != suffix) {
        return false;
    }
    text.remove_suffix(suffix.size());
    return true;
}

// Removes a decimal number from the end of `text`.
bool TakeNumber(std::string_view& text, std::int64_t& number)
{
    std::size_t begin = text.find_last_not_of("0123456789") + 1;
    if (begin > 0 && text[begin - 1] == '-') {
        --begin;
    }
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + begin, end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    text.remove_suffix(text.size() - begin);
    return true;
}

// Reads "NAME 123 is killed. ret = 123, status = 9" from its end, because the name may contain
// anything.
bool ReadEnd(std::string_view text, Event& event)
{
    std::int64_t wait_status = 0;
    if (!TakeNumber(text, wait_status) || !TakeBack(text, LiteralPart(kItemEnded, 3)) ||
        !TakeNumber(text, event.result) || !TakeBack(text, LiteralPart(kItemEnded, 2)) ||
        !TakeNumber(text, event.child) || !TakeBack(text, LiteralPart(kItemEnded, 1)) ||
        (event.result != event.child && event.result != -1) ||
        wait_status < std::numeric_limits<int>::min() ||
        wait_status > std::numeric_limits<int>::max()) {
        return false;
    }
    event.kind = EventKind::kEnd;
    event.wait_status = static_cast<int>(wait_status);
    event.name = text;
    return true;
}

// Reads a text whose only conversion is the item's name.
bool ReadNamed(std::string_view text, std::string_view format, EventKind kind, Event& event)
{
    if (!TakeFront(text, LiteralPart(format, 0)) || !TakeBack(text, LiteralPart(format, 1))) {
        return false;
    }
    event.kind = kind;
    event.name = text;
    return true;
}

bool ReadLost(std::string_view text, Event& event)
{
    std::int64_t number = 0;
    if (!TakeFront(text, "[QV7LOG    ] ") || !TakeBack(text, " records were lost") ||
        !TakeNumber(text, number) || !text.empty() || number < 0) {
        return false;
    }
    event.kind = EventKind::kRecordsLost;
    event.number = static_cast<std::uint64_t>(number);
    return true;
}

}  // namespace

Event ReadEvent(std::string_view level, std::string_view text)
{
    Event event;
    if (!TakeFront(text, kLauncherTag)) {
        ReadLost(text, event);
    } else if (level == "DEBUG") {
        ReadNamed(text, kItemStarts, EventKind::kStart, event);
    } else if (text == WithoutTag(kItemHasNoName)) {
        event.kind = EventKind::kNoName;
    } else if (text == WithoutTag(kListRejected)) {
        event.kind = EventKind::kListRejected;
    } else {
        // The end comes first: its form is the longest, so a name is least likely to imitate it.
        ReadEnd(text, event) || ReadNamed(text, kForkFailed, EventKind::kForkFailed, event) ||
            ReadNamed(text, kItemHasNoProgram, EventKind::kNoProgram, event);
    }
    return event;
}

std::optional<int> ExitStatusOf(const Termination& cause)
{
    return cause.is_known && WIFEXITED(cause.wait_status)
               ? std::optional<int>(WEXITSTATUS(cause.wait_status))
               : std::nullopt;
}

std::optional<int> SignalOf(const Termination& cause)
{
    return cause.is_known && WIFSIGNALED(cause.wait_status)
               ? std::optional<int>(WTERMSIG(cause.wait_status))
               : std::nullopt;
}

bool HasCore(const Termination& cause)
{
    return SignalOf(cause) && WCOREDUMP(cause.wait_status);
}

std::string TextOf(const Termination& cause)
{
    if (!cause.is_known) {
        return "unknown: waitpid failed";
    }
    if (const auto status = ExitStatusOf(cause)) {
        return "exit status " + std::to_string(*status);
    }
    if (const auto signal = SignalOf(cause)) {
        return "killed by " + NameOfSignal(*signal) + (HasCore(cause) ? ", core dumped" : "");
    }
    return "wait status " + std::to_string(cause.wait_status);
}

}  // namespace launchlist
