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

// Numbers differ between systems; a log is read where it was written.
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

// Takes a decimal number off the back of `text`.
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

// Reads a record of kItemEnded from its end backwards, because the name at its start may hold
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

// Reads a record of `format`, whose only conversion is the item's name.
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
        event.kind = EventKind::kListRefused;
    } else {
        // The end first: it is the longest form, and the one that a name imitates least easily.
        ReadEnd(text, event) || ReadNamed(text, kForkFailed, EventKind::kForkFailed, event) ||
            ReadNamed(text, kItemHasNoProgram, EventKind::kNoProgram, event);
    }
    return event;
}

std::string EndInWords(std::int64_t result, int wait_status)
{
    if (result < 0) {
        return "end not seen (waitpid failed)";
    }
    if (WIFEXITED(wait_status)) {
        return "exit status " + std::to_string(WEXITSTATUS(wait_status));
    }
    if (WIFSIGNALED(wait_status)) {
        return "killed by " + NameOfSignal(WTERMSIG(wait_status)) +
               (WCOREDUMP(wait_status) ? ", core dumped" : "");
    }
    return "wait status " + std::to_string(wait_status);
}

}  // namespace launchlist
