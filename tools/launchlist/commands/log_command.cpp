#include <time.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>

#include "logging/log_path.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/log/event_queue.h"
#include "tools/launchlist/log/log_follower.h"
#include "tools/launchlist/output/event_wording.h"

namespace launchlist {

namespace {

struct LogOptions
{
    std::vector<std::string> names;
    std::string log;  // Empty: the log of this user's launcher.
    std::string since;
    std::string until;
    std::optional<std::size_t> last;
    bool follows = false;
    bool is_raw = false;
    bool is_utc = false;

    Zone GetZone() const { return is_utc ? Zone::kUtc : Zone::kLocal; }
};

// How many events --follow shows at first, unless --lines or --since says otherwise.
constexpr std::size_t kLastEvents = 10;

void Pause(Milliseconds duration)
{
    const timespec time = {0, static_cast<long>(duration) * 1000000};
    nanosleep(&time, nullptr);
}

// Collects what is to be printed.
class Output
{
public:
    explicit Output(const LogOptions& options)
        : m_is_raw(options.is_raw), m_escapes(IsTerminal()), m_lines(options.GetZone(), UseColor())
    {
    }

    void Add(const LogEvent& event)
    {
        if (!m_is_raw) {
            m_text += m_lines.Of(event);
        } else if (event.entry != EntryKind::kTruncated && event.entry != EntryKind::kReplaced) {
            m_text += (m_escapes ? printable(event.text) : event.text) + "\n";
        }
        if (m_text.size() >= kMaxText) {
            Flush();
        }
    }

    // Prints what was added; returns the exit status. After a failure nothing more is printed.
    int Flush()
    {
        if (m_status == kSuccess && !m_text.empty()) {
            m_status = Print(m_text, kSuccess);
        }
        m_text.clear();
        return m_status;
    }

private:
    static constexpr std::size_t kMaxText = std::size_t{64} * 1024;

    const bool m_is_raw;
    const bool m_escapes;
    EventLines m_lines;
    std::string m_text;
    int m_status = kSuccess;
};

// Shows what can be read. Fails if a file of the log cannot be read, because its events are
// missing.
int ShowLog(const std::string& path, EventQueue& queue, Output& output)
{
    LogSink sink;
    sink.on_file = [] {};
    sink.on_record = [&](const qv7log::Record& record, std::string_view raw) {
        queue.AddRecord(record, raw);
    };
    sink.on_unparsed = [&](const UnparsedEntry& entry) { queue.AddUnparsed(entry); };
    int status = kSuccess;
    sink.on_unreadable = [&](const std::string& file, const std::string& error) {
        status = ReportFailure(file, error);
        queue.AddUnreadableFile();
    };
    const std::vector<LogFile> files = ReadLogs({path}, sink);
    const auto is_read = [](const LogFile& file) { return file.error.empty(); };
    if (std::none_of(files.begin(), files.end(), is_read)) {
        return status;
    }
    const std::vector<std::string> unknown = queue.UnknownNames();
    if (!unknown.empty()) {
        return ReportUnknownItem(path, unknown.front(), queue.ItemNames());
    }
    queue.Release(Now(), false, [&](const LogEvent& event) { output.Add(event); });
    return std::max(status, output.Flush());
}

// Returns only if something fails.
int FollowLog(const std::string& path, EventQueue& queue, Output& output)
{
    FollowSink sink;
    sink.on_file = [] {};
    sink.on_record = [&](const qv7log::Record& record, std::string_view raw) {
        queue.AddRecord(record, raw);
    };
    sink.on_unparsed = [&](const UnparsedEntry& entry) { queue.AddUnparsed(entry); };
    sink.on_change = [&](LogChange change) { queue.AddChange(change); };
    sink.on_unreadable = [&](const std::string& file, const std::string& error) {
        ReportFailure(file, error);
        queue.AddUnreadableFile();
    };
    LogFollower follower(path, sink);
    std::string error;
    Milliseconds pause = 0;
    for (bool is_first = true;; is_first = false) {
        if (!follower.Poll(error)) {
            return ReportFailure(path, error);
        }
        if (is_first && !follower.HasFile()) {
            std::fprintf(stderr, "launchlist: waiting for %s\n", printable(path).c_str());
        }
        queue.Release(Now(), true, [&](const LogEvent& event) { output.Add(event); });
        if (const int status = output.Flush()) {
            return status;
        }
        queue.RemoveLimit();
        pause = NextPause(pause, follower.HasGrown());
        Pause(pause);
    }
}

int RunLog(const LogOptions& options)
{
    EventSelection selection;
    selection.names = options.names;
    selection.since = MomentOf(options.since, options.GetZone());
    selection.until = MomentOf(options.until, options.GetZone());
    selection.is_raw = options.is_raw;
    selection.last = options.last;
    if (options.follows && !selection.since && !selection.last) {
        selection.last = kLastEvents;
    }
    if (IsReversed(options.since, selection.since, options.until, selection.until)) {
        return kUsage;
    }
    EventQueue queue(selection);
    Output output(options);
    const std::string path = options.log.empty() ? GetLogPath() : options.log;
    return options.follows ? FollowLog(path, queue, output) : ShowLog(path, queue, output);
}

}  // namespace

Command AddLogCommand(CLI::App& app)
{
    CLI::App* parser =
        app.add_subcommand("log", "Show the launcher's log in words, one line for each event.");
    const auto options = std::make_shared<LogOptions>();
    parser->add_option("NAME", options->names, "Show only the events of these items");
    parser
        ->add_option(
            "--file", options->log,
            "Read LOG and its old files LOG.1, LOG.2, ...; - is standard input; default: the "
            "log of this user's launcher")
        ->type_name("LOG");
    parser->add_flag(
        "-f,--follow", options->follows,
        "Wait for further events, even if there is no log yet; shows the last 10 events "
        "first, unless -n or --since is given");
    parser->add_option("-n,--lines", options->last, "Show only the last N events")->type_name("N");
    parser->add_option("--since", options->since, "Show only the events since TIME")
        ->type_name("TIME");
    parser->add_option("--until", options->until, "Show only the events until TIME")
        ->type_name("TIME");
    parser->add_flag("--raw", options->is_raw, "Show the records as they are in the log");
    parser->add_flag("--utc", options->is_utc, "Show and read times in UTC");
    parser->callback([options] {
        for (const std::string* moment : {&options->since, &options->until}) {
            const std::string problem = CheckMoment(*moment, options->GetZone());
            if (!moment->empty() && !problem.empty()) {
                throw CLI::ValidationError(problem);
            }
        }
        if (options->follows && !options->until.empty()) {
            throw CLI::ValidationError("--follow", "cannot be used with --until");
        }
        if (options->follows && options->log == "-") {
            throw CLI::ValidationError("--follow", "standard input cannot be followed");
        }
    });
    parser->footer(
        "TIME is a local time, \"2026-11-21 09:00\" or 09:00 for today, or an age: 90s, 15m, 2h, "
        "3d.\n"
        "\"restarting\" is shown only if the log contains the restart or a later end.\n"
        "Exit status: 0 shown, 3 the log or one of its old files cannot be read, the log mentions\n"
        "no item NAME, or the output cannot be written, 64 invalid arguments.\n"
        "Example:\n  launchlist log -f thumbnailer");
    return {parser, [options] { return RunLog(*options); }};
}

}  // namespace launchlist
